#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "async/FileThreadManager.h"
#include "cachefile.h"
#include "tests/support/Events.h"
#include "tests/support/Files.h"

// A host that ends in the way its argument names. It writes .\kvr2\7\a, which the test looks at,
// and exits with 0 unless something of it was used after its end.

namespace {

bool s_bHostGone = false;

/// Whatever the host gives to the library; using it after its end is what must not happen.
class Belonging {
 public:
    ~Belonging() { s_bHostGone = true; }
    void Use() {
        if (s_bHostGone) {
            std::fputs("used after its end\n", stderr);
            std::_Exit(3);
        }
        ++m_nUses;
    }

 private:
    std::atomic<int> m_nUses{0};
};

class Sink final : public IFileOpSink {
 public:
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) override {
        m_belonging.Use();
    }
    void OnDataReady(unsigned char*, CmUint32, const tagDataInfo&) override { m_belonging.Use(); }

 private:
    Belonging m_belonging;
};

void Require(bool bHolds, const char* lpWhat) {
    if (bHolds) return;
    std::fprintf(stderr, "not so: %s\n", lpWhat);
    std::_Exit(2);
}

CWriteFileHandler* s_pHandler = nullptr;  // what the host forgets to destroy
ThreadGate* s_pGate = nullptr;

/// Queues 50 blocks of a file, all of them accepted.
void Record(IFileOpSink* pSink) {
    s_pHandler = CCacheFileManager::Instance().CreateWriteFileHandler(7, 1);
    s_pHandler->Initialize(pSink);
    CmUint32 dwHandle = 0;
    Require(s_pHandler->OpenWritingFile("a", dwHandle) == 0, "the open is queued");
    for (unsigned i = 0; i < 50; ++i) {
        const CCmString strBlock = Pattern(40'000, i);
        Require(
            s_pHandler->WriteData(dwHandle, reinterpret_cast<const unsigned char*>(strBlock.data()),
                                  40'000, 0xFFFFFFFF) == 0,
            "the block is queued");
    }
    // A failure, which the worker traces and reports to nobody any more.
    s_pHandler->SetHomeDir("missing\\x");
    Require(s_pHandler->OpenWritingFile("b", dwHandle) == 0, "the bad open is queued");
}

/// The worker is held up until the library has let go of what belongs to the host, which is gone
/// by then.
void ExitBusy() {
    const auto pUser = std::make_unique<Belonging>();
    const auto pSink = std::make_unique<Sink>();
    const std::shared_ptr<void> pDropped(nullptr, [](void*) { s_pGate->Open(); });
    CCmCallerThread::Attach();
    CCmT120Trace::instance()->SetSink([p = pUser.get()](CmInt32, const char*) { p->Use(); });
    CCmCallerThread::SetWakeUp([p = pUser.get(), pDropped] { p->Use(); });
    int nDescriptor = -1;
    Require(CCmCallerThread::GetWakeDescriptor(nDescriptor) == 0, "there is a descriptor");
    s_pGate = new ThreadGate(CFileThreadManager::Instance()->GetPrimaryNFSThread());
    Record(pSink.get());
}

/// The child has its parent's memory but not its worker.
void ExitInForkedChild() {
    Sink aSink;
    CCmCallerThread::Attach();
    Record(&aSink);
    const pid_t nChild = ::fork();
    if (nChild == 0) std::exit(0);
    int nStatus = -1;
    Require(::waitpid(nChild, &nStatus, 0) == nChild && nStatus == 0, "the child exits with 0");
}

void ExitAfterTwoShutdowns() {
    Sink aSink;
    const CCmCallerThreadGuard aAttached;
    Record(&aSink);
    s_pHandler->Destroy();
    Require(CacheFileShutdown() == 0, "the first shutdown");
    Require(CacheFileShutdown() == 0, "the second shutdown");
}

/// Runs when the library has ended its worker: no other one can be had, and nothing is waited for.
void OpenAfterTheEnd() {
    CmUint32 dwHandle = 0;
    Require(s_pHandler->OpenWritingFile("late", dwHandle) == 4010, "a late open is refused");
    s_pHandler->Destroy();
    Require(CacheFileShutdown() == 0, "a late shutdown");
}

void ExitAndOpenLate() {
    static Sink s_sink;
    std::atexit(OpenAfterTheEnd);  // before the library's own handler, so it runs after it
    CCmCallerThread::Attach();
    Record(&s_sink);
}

}  // namespace

int main(int nArguments, char** lpArguments) {
    const struct {
        const char* lpName;
        void (*run)();
    } aScenarios[] = {{"busy", ExitBusy},
                      {"forked", ExitInForkedChild},
                      {"twice", ExitAfterTwoShutdowns},
                      {"late", ExitAndOpenLate}};
    for (const auto& aScenario : aScenarios) {
        if (nArguments < 2 || std::strcmp(lpArguments[1], aScenario.lpName) != 0) continue;
        aScenario.run();
        return 0;
    }
    return 1;
}
