#include <cstdlib>

#include "async/FileThreadManager.h"
#include "tests/support/HostTest.h"

// Each case is a host in a child process, which ends in one way. The host writes .\kvr2\7\a. It
// exits with 0 unless one of its callbacks is called after its end.

namespace {

void Require(bool bHolds, const char* lpWhat) {
    if (bHolds) return;
    std::cerr << "check failed: " << lpWhat << std::endl;
    std::_Exit(2);
}

bool s_bHostGone = false;

/// The host's callbacks, of all kinds.
class Sink final : public IFileOpSink {
 public:
    ~Sink() { s_bHostGone = true; }
    void Use() {
        Require(!s_bHostGone && ++m_nUses > 0, "no callback runs after the end of its host");
    }
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) override {
        Use();
    }
    void OnDataReady(unsigned char*, CmUint32, const tagDataInfo&) override { Use(); }

 private:
    int m_nUses = 0;
};

CWriteFileHandler* s_pHandler = nullptr;  // what the host forgets to destroy
CmUint32 s_dwFirstHandle = 0;
ThreadGate* s_pGate = nullptr;

/// Queues 50 blocks of a file, all of them accepted, and an open whose failure will be traced.
void Record(IFileOpSink* pSink) {
    s_pHandler = CCacheFileManager::Instance().CreateWriteFileHandler(7, 1);
    s_pHandler->Initialize(pSink);
    CmUint32 dwHandle = 0;
    Require(s_pHandler->OpenWritingFile("a", dwHandle) == 0, "the open is queued");
    for (unsigned i = 0; i < 50; ++i) {
        const CCmString strBlock = Pattern(40'000, i);
        Require(s_pHandler->WriteData(dwHandle, BytesOf(strBlock), 40'000, c_dwEnd) == 0,
                "the write is queued");
    }
    s_dwFirstHandle = dwHandle;
    s_pHandler->SetHomeDir("missing\\x");
    Require(s_pHandler->OpenWritingFile("b", dwHandle) == 0, "the open that fails is queued");
}

/// The worker waits until the library has dropped the host's sink and callable, which are destroyed
/// by then.
void ExitBusy() {
    const auto pSink = std::make_unique<Sink>();
    const std::shared_ptr<void> pDropped(nullptr, [](void*) { s_pGate->Open(); });
    CCmCallerThread::Attach();
    CCmT120Trace::instance()->SetSink([p = pSink.get()](CmInt32, const char*) { p->Use(); });
    CCmCallerThread::SetWakeUp([p = pSink.get(), pDropped] { p->Use(); });
    s_pGate = new ThreadGate(CFileThreadManager::Instance()->GetPrimaryNFSThread());
    Record(pSink.get());
}

constexpr unsigned char c_aTail[] = {'t', 'a', 'i', 'l'};

/// Gathered bytes are accepted when their file is closed or their handler is destroyed. The host
/// makes no further call of the library.
void ReturnAfter(CmInt32 (*pEnd)(CmUint32 dwHandle)) {
    static Sink s_sink;
    CCmCallerThread::Attach();
    Record(&s_sink);
    const CmUint32 dwHandle = s_dwFirstHandle;
    Require(s_pHandler->WriteData(dwHandle, c_aTail, 4, 0xFFFFFFFF) == 0, "the tail is gathered");
    Require(pEnd(dwHandle) == 0, "the close or Destroy is queued");
}

/// The handler registered first runs last: after the library has ended its worker.
void ExitAndOpenLate() {
    static Sink s_sink;
    std::atexit([] {
        CmUint32 dwHandle = 0;
        Require(s_pHandler->OpenWritingFile("late", dwHandle) == 4010, "a late open is refused");
        Require(s_pHandler->Destroy() == 0 && CacheFileShutdown() == 0,
                "a late Destroy and shutdown return 0");
    });
    CCmCallerThread::Attach();
    Record(&s_sink);
}

struct Case {
    const char* lpName;
    void (*pHost)();
    const char* lpTail;  // what is in the file after the 50 blocks
};

const Case c_aCases[] = {
    {"Busy", ExitBusy, ""},
    {"Late", ExitAndOpenLate, ""},
    {"Closed",
     [] { ReturnAfter([](CmUint32 dwHandle) { return s_pHandler->CloseFile(dwHandle); }); },
     "tail"},
    {"Destroyed", [] { ReturnAfter([](CmUint32) { return s_pHandler->Destroy(); }); }, "tail"},
};

using Exit = testing::TestWithParam<Case>;
INSTANTIATE_TEST_SUITE_P(Host, Exit, testing::ValuesIn(c_aCases),
                         [](const auto& aInfo) { return std::string(aInfo.param.lpName); });

}  // namespace

TEST_P(Exit, EveryAcceptedWriteIsInItsFile) {
    const TestDir aDir;
    EXPECT_EXIT((GetParam().pHost(), std::exit(0)), testing::ExitedWithCode(0), "");
    CCmString strAll;
    for (unsigned i = 0; i < 50; ++i) strAll += Pattern(40'000, i);
    ExpectFile(Recording::PathOf("a"), strAll + GetParam().lpTail);
}
