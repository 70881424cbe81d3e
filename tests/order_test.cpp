#include <stdexcept>

#include "async/FileThreadManager.h"
#include "tests/support/HostTest.h"

using Order = HostTest;

TEST_F(Order, AFailedOpenIsToldOnceAndRefusesWhatFollows) {
    Recording aRecording(Async, &m_sink);
    aRecording->SetHomeDir("missing\\x");  // the first directory is never made
    CmUint32 dwQueued = 0;
    CmUint32 dwKept = 0;
    {
        ThreadGate aGate(Worker());  // the failure isn't known yet
        dwQueued = aRecording.Open("q");
        EXPECT_EQ(aRecording.Write(dwQueued, Pattern(40'000)), 0);
        EXPECT_EQ(aRecording->CloseFile(dwQueued), 0);
        dwKept = aRecording.Open("k");
    }
    Settle();
    EXPECT_EQ(m_sink.Take(), "Open 4001, Write 4006, Close 4001, Close 4001, Open 4001")
        << "the end of a closed chain closes again";
    EXPECT_EQ(m_trace.TakeErrors(),
              "CFilePathBuilder::BuildPath->Build Error=2\n"
              "COpenCloseEvent::OnEventFire->Open File error:missing\\x\\q this=*\n"
              "COpenCloseEvent::OnEventFire->Close File error:missing\\x\\q this=*\n"
              "COpenCloseEvent::OnEventFire->Close File error:missing\\x\\q this=*\n"
              "CFilePathBuilder::BuildPath->Build Error=2\n"
              "COpenCloseEvent::OnEventFire->Open File error:missing\\x\\k this=*\n");
    EXPECT_EQ(aRecording->GetFileStatus(CCacheFileManager::Link_Backup), 4001);

    EXPECT_EQ(aRecording.Write(dwKept, "gathered"), 0);
    EXPECT_EQ(aRecording.Write(dwKept, "positioned", 0), 4006);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(aRecording->CloseFile(dwKept), 4001);  // it stays
    EXPECT_EQ(m_trace.TakeErrors(),
              "CBufferDecorate::WriteData->Write buffer data error this=*\n"
              "CWriteFileHandler::WriteData->Write Data error=4006 this=*\n"
              "CWriteFileHandler::CloseFile->Close file error=4001 this=*\n"
              "CWriteFileHandler::CloseFile->Close file error=4001 this=*\n");
    Settle();
    EXPECT_EQ(m_sink.Take(), "");
    EXPECT_EQ(m_lost.Take(), 40'008U);  // the block, and "gathered"
}

/// A handler whose end can be seen.
class WatchedHandler final : public CWriteFileHandler {
 public:
    explicit WatchedHandler(bool& bGone) : CWriteFileHandler(7, Async), m_bGone(bGone) {
        AddReference();
    }
    ~WatchedHandler() override { m_bGone = true; }

 private:
    bool& m_bGone;
};

TEST_F(Order, ADestroyedHandlerWritesItsQueueAndTellsItsSinkNothing) {
    bool bGone = false;
    auto* const pHandler = new WatchedHandler(bGone);
    ASSERT_EQ(pHandler->Initialize(&m_sink), 0);
    CCmString strAll;
    {
        ThreadGate aGate(Worker());
        CmUint32 dwHandle = 0;
        CmUint32 dwBad = 0;
        EXPECT_EQ(pHandler->OpenWritingFile("a", dwHandle), 0);
        for (unsigned i = 0; i < 50; ++i) {
            const CCmString strPiece = Pattern(20'001, i);
            strAll += strPiece;
            EXPECT_EQ(pHandler->WriteData(dwHandle,
                                          reinterpret_cast<const unsigned char*>(strPiece.data()),
                                          static_cast<CmUint32>(strPiece.size()), c_dwEnd),
                      0);
        }
        pHandler->SetHomeDir("missing\\x");
        EXPECT_EQ(pHandler->OpenWritingFile("bad", dwBad), 0);
        pHandler->AddReference();
        EXPECT_EQ(pHandler->Destroy(), 0);
        EXPECT_EQ(pHandler->GetTempHomeDir(), "");
    }
    RunOn(Worker(), nullptr);
    EXPECT_GT(pHandler->GetReference(), 1U) << "results that wait hold the handler";
    EXPECT_EQ(CacheFileShutdown(), 0);
    EXPECT_EQ(pHandler->GetReference(), 1U);
    EXPECT_EQ(pHandler->GetFileStatus(CCacheFileManager::Link_Local), 4001);
    pHandler->ReleaseReference();
    EXPECT_TRUE(bGone);
    EXPECT_EQ(m_sink.Take(), "");
    ExpectFile(Recording::PathOf("a"), strAll);
}

TEST_F(Order, WithoutAnAttachedThreadAnOpenIsRefusedAndTracedWhy) {
    m_attached.reset();
    Recording aRecording(Async, &m_sink);
    EXPECT_EQ(aRecording.TryOpen("a"), 4010);
    EXPECT_EQ(
        m_trace.TakeErrors(),
        "BuildFileChain->No caller thread: asynchronous files need the host's thread attached "
        "(CCmCallerThread::Attach)\n" +
            Assertion("async/FileThreadProxy.cpp",
                      "pRWThread && pCallerThread && pActualFile && pReceive") +
            Assertion("async/FileThreadProxy.cpp", "m_pRWThread && m_pCallerThread") +
            "CWriteFileHandler::OpenWritingFile->Open file error=4010 this=*\n" +
            Assertion("async/FileThreadProxy.cpp", "m_pRWThread && m_pCallerThread"));
    m_attached.emplace();
    EXPECT_EQ(aRecording.TryOpen("a"), 0);
    Settle();
    EXPECT_EQ(m_sink.Take(), "Open 0");
}

TEST_F(Order, AStoppedWorkerHasWrittenItsQueueAndTheNextOpenStartsAnother) {
    Recording aRecording(Async, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    ACmThread* const pWorker = Worker();
    for (unsigned i = 0; i < 20; ++i) EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 0);
    CFileThreadManager* const pThreads = CFileThreadManager::Instance();
    pThreads->StopThread(nullptr);
    pThreads->StopThread(pThreads->GetCallerThread());
    EXPECT_EQ(Worker(), pWorker);
    pThreads->StopThread(pWorker);
    EXPECT_EQ(ReadBytes(Recording::PathOf("a")).size(), 20U * 40'000U);

    EXPECT_EQ(aRecording.Write(dwHandle, "gathered"), 0);
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(32768)), 4010);
    EXPECT_EQ(m_lost.Take(), 8U);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 4010);
    EXPECT_EQ(m_trace.TakeErrors(),
              Assertion("async/FileThreadProxy.cpp", "pQueue") +
                  "CWriteFileHandler::WriteData->Write Data error=4010 this=*\n" +
                  Assertion("async/FileThreadProxy.cpp", "pQueue") +
                  "CWriteFileHandler::CloseFile->Close file error=4010 this=*\n");

    const CmUint32 dwNew = aRecording.Open("b");
    EXPECT_NE(Worker(), pWorker);
    EXPECT_EQ(aRecording.Write(dwNew, "b"), 0);
    EXPECT_EQ(aRecording->CloseFile(dwNew), 0);
    CacheFileShutdown();
    ExpectFile(Recording::PathOf("b"), "b");
    EXPECT_EQ(m_sink.Take(), "Open 0, Open 0");
}

TEST_F(Order, AShutdownRunsWhatWaitsRefusesOpensAndCanBeRepeated) {
    Recording aRecording(Async, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 0);
    CmInt32 lInside = 0;
    m_sink.m_onStatus = [&] { lInside = aRecording.TryOpen("refused"); };
    for (int i = 0; i < 2; ++i) EXPECT_EQ(CacheFileShutdown(), 0);
    EXPECT_EQ(lInside, 4010);
    EXPECT_EQ(m_sink.Take(), "Open 0");
    ExpectFile(Recording::PathOf("a"), Pattern(40'000));
    aRecording.Open("b");

    m_sink.m_onStatus = [] { throw std::runtime_error("a host's own"); };
    EXPECT_THROW(CacheFileShutdown(), std::runtime_error);
    aRecording.Open("c");  // the shutdown is over all the same
    CacheFileShutdown();
    EXPECT_EQ(m_sink.Take(), "Open 0, Open 0");
}

/// What a host does inside the first of two callbacks that wait.
struct InsideCase {
    const char* lpName;
    std::function<void(Recording&, CmUint32 dwHandle)> act;
    const char* lpTold;       // all the callbacks there are
    std::size_t dwExtra = 0;  // bytes it adds to the first file
};
void PrintTo(const InsideCase& aCase, std::ostream* pOut) { *pOut << aCase.lpName; }

class Inside : public HostTest, public testing::WithParamInterface<InsideCase> {};

TEST_P(Inside, ACallbackMayDoAnything) {
    Recording aRecording(Async, &m_sink);
    const CmUint32 dwFirst = aRecording.Open("a");
    const CmUint32 dwSecond = aRecording.Open("b");
    for (const CmUint32 dwHandle : {dwFirst, dwSecond})
        EXPECT_EQ(aRecording.Write(dwHandle, Pattern(50'000)), 0);
    RunOn(Worker(), nullptr);  // both results wait now
    m_sink.m_onStatus = [&] { GetParam().act(aRecording, dwFirst); };
    try {
        CCmCallerThread::RunPending();
    } catch (const std::runtime_error&) {
        EXPECT_EQ(m_sink.Take() + " and thrown", "Open 0 and thrown");
    }
    Settle();
    EXPECT_EQ(m_sink.Take(), GetParam().lpTold);
    aRecording.Destroy();
    CacheFileShutdown();
    EXPECT_EQ(m_sink.Take(), "");
    ExpectFile(Recording::PathOf("a"), Pattern(50'000) + Pattern(GetParam().dwExtra));
    ExpectFile(Recording::PathOf("b"), Pattern(50'000));
}

INSTANTIATE_TEST_SUITE_P(
    Callback, Inside,
    testing::Values(
        InsideCase{"Opens", [](Recording& r, CmUint32) { r.Open("c"); }, "Open 0, Open 0, Open 0"},
        InsideCase{"Writes",
                   [](Recording& r, CmUint32 dw) { EXPECT_EQ(r.Write(dw, Pattern(40'000)), 0); },
                   "Open 0, Open 0", 40'000},
        InsideCase{"Closes", [](Recording& r, CmUint32 dw) { EXPECT_EQ(r->CloseFile(dw), 0); },
                   "Open 0, Open 0"},
        InsideCase{"Destroys", [](Recording& r, CmUint32) { r.Destroy(); }, "Open 0"},
        InsideCase{"RunsTheQueue",
                   [](Recording&, CmUint32) {
                       CmUint32 dwRun = 0;
                       EXPECT_EQ(CCmCallerThread::RunPending(&dwRun), 0);
                       EXPECT_EQ(dwRun, 1U) << "the other one";
                   },
                   "Open 0, Open 0"},
        InsideCase{"ShutsDown", [](Recording&, CmUint32) { EXPECT_EQ(CacheFileShutdown(), 0); },
                   "Open 0, Open 0"},
        InsideCase{"DestroysAndShutsDown",
                   [](Recording& r, CmUint32) {
                       r.Destroy();
                       EXPECT_EQ(CacheFileShutdown(), 0);
                   },
                   "Open 0"},
        InsideCase{"Detaches",
                   [](Recording&, CmUint32) { EXPECT_EQ(CCmCallerThread::Detach(), 0); }, "Open 0"},
        InsideCase{"Throws", [](Recording&, CmUint32) { throw std::runtime_error("a host's own"); },
                   "Open 0"}),
    [](const auto& aInfo) { return aInfo.param.lpName; });
