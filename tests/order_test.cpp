#include <stdexcept>

#include "async/FileThreadManager.h"
#include "tests/support/HostTest.h"

using Order = HostTest;

TEST_F(Order, ADestroyedHandlerWritesItsQueueAndTellsItsSinkNothing) {
    Recording aRecording(Async, &m_sink);
    CWriteFileHandler* const pHandler = aRecording.operator->();
    pHandler->AddReference();
    CCmString strAll;
    {
        ThreadGate aGate(Worker());
        const CmUint32 dwHandle = aRecording.Open("a");
        for (unsigned i = 0; i < 50; ++i) {
            strAll += Pattern(20'001, i);
            EXPECT_EQ(aRecording.Write(dwHandle, Pattern(20'001, i)), 0);
        }
        pHandler->SetHomeDir("missing\\x");
        aRecording.Open("bad");
        aRecording.Destroy();
        EXPECT_EQ(pHandler->GetTempHomeDir(), "");
    }
    RunOn(Worker(), nullptr);
    EXPECT_GT(pHandler->GetReference(), 1U) << "results that wait hold the handler";
    EXPECT_EQ(CacheFileShutdown(), 0);
    EXPECT_EQ(pHandler->GetFileStatus(CCacheFileManager::Link_Backup), 4001) << "kept all the same";
    EXPECT_EQ(pHandler->ReleaseReference(), 0U);
    EXPECT_EQ(m_sink.Take(), "");
    ExpectFile(Recording::PathOf("a"), strAll);
}

TEST_F(Order, WithoutAnAttachedThreadAnOpenIsRefusedAndTracedWhy) {
    m_attached.reset();
    Recording aRecording(Async, &m_sink);
    EXPECT_EQ(aRecording.TryOpen("a"), 4010);
    EXPECT_EQ(
        m_trace.TakeErrors(),
        "CFileChain::Build->No caller thread: asynchronous files need the host's thread attached "
        "(CCmCallerThread::Attach) this=*\n" +
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
    const CRefPtr<ACmThread> pWorker = Worker();
    for (unsigned i = 0; i < 20; ++i) EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 0);
    for (const auto& pOther : {CRefPtr<ACmThread>(), CCmThreadManager::Instance()->GetThread(3)})
        CFileThreadManager::Instance()->StopThread(pOther);
    EXPECT_EQ(Worker().Get(), pWorker.Get());
    CFileThreadManager::Instance()->StopThread(pWorker);
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

    aRecording.Open("b");
    EXPECT_NE(Worker().Get(), pWorker.Get());
    Settle();
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
        EXPECT_EQ(m_sink.Take(), "Open 0") << "the rest waits";
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
