#include <stdexcept>

#include "async/FileThreadManager.h"
#include "tests/support/Player.h"

// Checks requests, callbacks and read buffers when callbacks, handlers, threads or the library end.
// AddressSanitizer shows whether a buffer is leaked or freed twice.

namespace {

/// A host with six bytes in a record file and in a container.
class Teardown : public HostTest {
 protected:
    Teardown() {
        WriteBytes("kvr2/7/a", "abcdef");
        CContainerWriter aWriter;
        EXPECT_EQ(AddStream(aWriter, c_aStream, "abcdef"), 0);
        EXPECT_EQ(aWriter.Write(".\\c"), 0);
    }

    /// A player that has the file or the container open.
    void Start(Player::Use aUse) {
        m_player.emplace(Async, &m_sink, aUse);
        EXPECT_EQ(
            aUse == Player::ForDownload ? m_player->Open("c") : m_player->OpenFile("a", c_aStream),
            0);
        Settle();
        m_sink.Take();
    }

    std::optional<Player> m_player;
};

}  // namespace

TEST_F(Teardown, PendingReadsAreDeliveredOrFreed) {
    const auto nothing = [] {};
    const auto detach = [&] { m_attached.reset(); };
    const auto destroy = [&] { m_player->Destroy(); };
    const auto waitForWorker = [] { RunOn(Worker(), nullptr); };
    const struct {
        std::function<void()> whileTheyWait, whenTheyRun, whenTheyHaveRun;
        const char* lpCallbacks;
    } aCases[] = {{nothing, destroy, nothing, ""},
                  {nothing, nothing, nothing, "Data 4, Data 4"},
                  {nothing, waitForWorker, detach, ""},
                  {detach, nothing, nothing, ""}};
    for (const auto& aCase : aCases) {
        for (const auto aUse : {Player::ForFiles, Player::ForDownload}) {
            SCOPED_TRACE((&aCase - aCases) * 10 + aUse);
            Start(aUse);
            CPlayFileHandler* const pHandler = m_player->operator->();
            pHandler->AddReference();
            std::optional<ThreadGate> aGate(Worker());
            for (int i = 0; i < 2; ++i) EXPECT_EQ(m_player->Read(c_aInfo, 1, 4), 0);
            aCase.whileTheyWait();
            aGate.reset();
            aCase.whenTheyRun();
            aCase.whenTheyHaveRun();
            EXPECT_EQ(CacheFileShutdown(), 0);
            EXPECT_EQ(m_sink.Take(), aCase.lpCallbacks);
            m_player.reset();
            EXPECT_EQ(pHandler->GetReference(), 1U);
            pHandler->ReleaseReference();
            if (!m_attached) m_attached.emplace();
        }
    }
}

TEST_F(Teardown, DestroyingADownloadPlayerStopsTheWorkerOfARecording) {
    CFileThreadManager* const pThreads = CFileThreadManager::Instance();
    CCmString strAll;
    for (unsigned i = 0; i < 20; ++i) strAll += Pattern(40'000, i);
    for (const bool bOpened : {true, false}) {  // one with an open container, one without
        Recording aRecording(Async, &m_sink);
        const CmUint32 dwHandle = aRecording.Open("r");
        Player aPlayer(Async, nullptr);
        if (bOpened) {
            EXPECT_EQ(aPlayer.Open("c"), 0);
        }
        const CRefPtr<ACmThread> pWorker = Worker();
        for (const auto& pOther : {CRefPtr<ACmThread>(), pThreads->GetCallerThread()})
            pThreads->StopThread(pOther);
        EXPECT_EQ(Worker().Get(), pWorker.Get()) << "no other thread is stopped";
        {
            const ThreadGate aGate(pWorker);
            for (unsigned i = 0; i < 20; ++i)
                EXPECT_EQ(aRecording.Write(dwHandle, strAll.substr(i * 40'000, 40'000)), 0);
            if (bOpened) {
                EXPECT_EQ(aPlayer.Read(c_aInfo, 0, 6), 0);
            }
        }
        aPlayer.Destroy();
        ExpectFile("kvr2/7/r", strAll);
        m_trace.TakeErrors();
        EXPECT_EQ(aRecording.Write(dwHandle, Pattern(32'767)), 0) << "gathered";
        EXPECT_EQ(aRecording.Write(dwHandle, "x"), 4010) << "passed to the worker, which has ended";
        EXPECT_EQ(m_lost.Take(), 32'767U);
        EXPECT_EQ(aRecording->CloseFile(dwHandle), 4010);
        const std::string strRefused =
            Assertion("async/FileThreadProxy.cpp", "pQueue") + "CWriteFileHandler::";
        EXPECT_EQ(m_trace.TakeErrors(), strRefused + "WriteData->Write Data error=4010 this=*\n" +
                                            strRefused +
                                            "CloseFile->Close file error=4010 this=*\n");

        const CmUint32 dwNext = aRecording.Open("next");
        EXPECT_NE(Worker().Get(), pWorker.Get());
        EXPECT_EQ(aRecording.Write(dwNext, "on a new worker"), 0);
        aRecording->FlushData(dwNext);
        Settle();
        ExpectFile("kvr2/7/next", "on a new worker");
        EXPECT_EQ(m_sink.Take(), "Open 0, Open 0");
    }
}

TEST_F(Teardown, AShutdownRunsTheQueueRefusesOpensAndCanBeRepeated) {
    Recording aRecording(Async, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("r");
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 0);
    CmInt32 lInside = 0;
    m_sink.m_onStatus = [&] { lInside = aRecording.TryOpen("refused"); };
    EventCounts aCounts;
    HostQueue()->PostEvent(
        new TestEvent(aCounts, [&] { return HostQueue()->PostEvent(new TestEvent(aCounts), 1); }),
        1);
    EXPECT_EQ(CacheFileShutdown(), 0);
    EXPECT_EQ(aCounts.nFired, 2) << "events that are posted by the last ones run too";
    EXPECT_EQ(CacheFileShutdown(), 0);
    EXPECT_EQ(lInside, 4010);
    EXPECT_EQ(m_sink.Take(), "Open 0");
    ExpectFile(Recording::PathOf("r"), Pattern(40'000));
    aRecording.Open("b");

    m_sink.m_onStatus = [] { throw std::runtime_error("a host's own"); };
    EXPECT_THROW(CacheFileShutdown(), std::runtime_error);
    aRecording.Open("c");  // the shutdown has ended in spite of the exception
    CacheFileShutdown();
    EXPECT_EQ(m_sink.Take(), "Open 0, Open 0");
}

TEST_F(Teardown, AnOpenWithoutAnAttachedThreadIsRefusedAndTraced) {
    m_attached.reset();
    Recording aRecording(Async, &m_sink);
    EXPECT_EQ(aRecording.TryOpen("b"), 4010);
    EXPECT_EQ(
        m_trace.TakeErrors().find("CFileChain::Build->No caller thread: asynchronous files need "
                                  "the host's thread attached (CCmCallerThread::Attach)"),
        0U);
    m_attached.emplace();
    EXPECT_EQ(aRecording.TryOpen("b"), 0);
    Settle();
    EXPECT_EQ(m_sink.Take(), "Open 0");
}
