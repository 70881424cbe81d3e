#include "async/FileThreadManager.h"
#include "tests/support/Player.h"

/// Where read buffers go when handlers, threads and callbacks end. That none is lost or freed
/// twice is the address sanitizer's to say.
class Teardown : public HostModeTest {
 protected:
    Teardown() {
        std::filesystem::create_directories("kvr2/7");
        WriteBytes("kvr2/7/a", "abcdef");
        CContainerWriter aWriter;
        aWriter.AddStream({8, 2, 7008, 5}, reinterpret_cast<const unsigned char*>("abcdef"), 6);
        EXPECT_EQ(aWriter.Write(".\\c"), 0);
    }

    /// A player in this mode that has the six bytes open, in a file or in the container.
    void Start(Player::Use aUse, IFileOpSink* pSink) {
        m_player.emplace(GetParam(), pSink, aUse);
        EXPECT_EQ(aUse == Player::ForDownload ? m_player->Open("c")
                                              : m_player->OpenFile("a", {8, 2, 7008, 5}),
                  0);
        Settle();
        m_sink.Take();
    }

    static constexpr tagDataInfo c_aInfo{8, 7008, 99, 2};
    std::optional<Player> m_player;
};
INSTANTIATE_BOTH_MODES(Teardown);

TEST_P(Teardown, ACallbackMayDestroyTheHandler) {
    for (const auto aUse : {Player::ForFiles, Player::ForDownload}) {
        Collector aCollector;
        Start(aUse, &aCollector);
        aCollector.m_onData = [&] { m_player->Destroy(); };
        EXPECT_EQ(m_player->Read(c_aInfo, 1, 4), 0);
        if (GetParam() == Async) {
            EXPECT_EQ(m_player->Read(c_aInfo, 2, 4), 0);
        }
        Settle();
        EXPECT_EQ(aCollector.Take(), "bcde") << "the second answer finds no sink any more";
    }
    EXPECT_EQ(m_trace.TakeErrors(), "");
}

TEST_P(Teardown, WithoutASinkTheBytesOfAReadAreFreed) {
    for (const auto aUse : {Player::ForFiles, Player::ForDownload}) {
        Start(aUse, nullptr);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(m_player->Read(c_aInfo, 1, 4), 0);
        Settle();
    }
}

/// How the host ends while four reads are on their way.
enum class End { Destroys, ShutsDown, Detaches, DetachesFirst };

using TeardownAsync = Teardown;
INSTANTIATE_TEST_SUITE_P(Modes, TeardownAsync, testing::Values(Async), ModeName);

TEST_P(TeardownAsync, ReadsUnderWayReachTheSinkOrNobody) {
    const std::pair<End, const char*> aCases[] = {
        {End::Destroys, ""},
        {End::ShutsDown, "Data 4, Data 4, Data 4, Data 4"},
        {End::Detaches, ""},
        {End::DetachesFirst, ""}};
    for (const auto& [aEnd, lpTold] : aCases) {
        for (const auto aUse : {Player::ForFiles, Player::ForDownload}) {
            SCOPED_TRACE(static_cast<int>(aEnd) * 10 + aUse);
            Start(aUse, &m_sink);
            CPlayFileHandler* const pHandler = m_player->operator->();
            pHandler->AddReference();
            std::optional<ThreadGate> aGate(Worker());
            for (int i = 0; i < 4; ++i) EXPECT_EQ(m_player->Read(c_aInfo, 1, 4), 0);
            if (aEnd == End::DetachesFirst) m_attached.reset();  // nobody to be told
            aGate.reset();
            if (aEnd == End::Detaches) {
                RunOn(Worker(), nullptr);  // all four wait
                m_attached.reset();
            }
            if (aEnd == End::Destroys) {
                m_player->Destroy();
                EXPECT_GT(pHandler->GetReference(), 1U) << "the answers hold it";
            }
            aEnd == End::Destroys ? Settle() : void(CacheFileShutdown());
            EXPECT_EQ(m_sink.Take(), lpTold);
            m_player.reset();
            EXPECT_EQ(pHandler->GetReference(), 1U);
            pHandler->ReleaseReference();
            if (!m_attached) m_attached.emplace();
        }
    }
}

TEST_P(TeardownAsync, RefusedReadsLeaveTheBufferWithTheHost) {
    for (const auto aUse : {Player::ForFiles, Player::ForDownload}) {
        Start(aUse, &m_sink);
        CFileThreadManager::Instance()->StopThread(Worker());
        const std::string strLine =
            aUse == Player::ForFiles
                ? "CPlayFileHandler::ReadData->Read data error4010 this=*\n"
                : "CDownloadFileHandler::ReadData->read data error4010 this=*\n";
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(m_player->Read(c_aInfo, 0, 4), 4010);
            EXPECT_EQ(m_trace.TakeErrors(),
                      Assertion("async/FileThreadProxy.cpp", "pQueue") + strLine);
        }
        if (aUse == Player::ForFiles) {
            EXPECT_EQ(m_player->SyncRead(c_aInfo, 0, 4), "abcd") << "which needs no worker";
        }
        m_player.reset();
        Settle();
        EXPECT_EQ(m_sink.Take(), "");
        m_trace.TakeErrors();
    }
}

TEST_P(TeardownAsync, AReadBehindAFailedOpenBringsItsBufferBack) {
    Player aPlayer(Async, &m_sink, Player::ForFiles);
    std::optional<ThreadGate> aGate(Worker());
    EXPECT_EQ(aPlayer.OpenFile("missing", {8, 2, 7008, 5}), 0);
    EXPECT_EQ(aPlayer.Read(c_aInfo, 0, 4), 0);
    aGate.reset();
    Settle();
    EXPECT_EQ(m_sink.Take(), "Open 4001, Data 0");
}

TEST_P(TeardownAsync, TheEndOfADownloadPlayerStopsTheWorkerUnderARecording) {
    for (const bool bOpened : {true, false}) {  // one that holds a container, one that never did
        Recording aRecording(Async, &m_sink);
        const CmUint32 dwHandle = aRecording.Open("r");
        Player aPlayer(Async, nullptr);
        if (bOpened) {
            EXPECT_EQ(aPlayer.Open("c"), 0);
        }
        const CRefPtr<ACmThread> pWorker = Worker();
        {
            ThreadGate aGate(pWorker);
            for (unsigned i = 0; i < 20; ++i)
                EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000, i)), 0);
            if (bOpened) {
                EXPECT_EQ(aPlayer.Read(c_aInfo, 0, 6), 0);
            }
        }
        aPlayer.Destroy();
        CCmString strAll;
        for (unsigned i = 0; i < 20; ++i) strAll += Pattern(40'000, i);
        ExpectFile("kvr2/7/r", strAll);
        EXPECT_EQ(aRecording.Write(dwHandle, Pattern(32'767)), 0) << "only gathered";
        EXPECT_EQ(aRecording.Write(dwHandle, "x"), 4010) << "handed down";
        EXPECT_EQ(aRecording->CloseFile(dwHandle), 4010);

        const CmUint32 dwNext = aRecording.Open("next");
        EXPECT_NE(Worker().Get(), pWorker.Get());
        EXPECT_EQ(aRecording.Write(dwNext, "on a new worker"), 0);
        aRecording->FlushData(dwNext);
        Settle();
        ExpectFile("kvr2/7/next", "on a new worker");
        ExpectFile("kvr2/7/r", strAll);
        EXPECT_EQ(m_sink.Take(), "Open 0, Open 0");
    }
}

TEST_P(Teardown, ARecorderAndTwoPlayersWorkSideBySide) {
    Collector aFromFile, aFromContainer;
    Start(Player::ForFiles, &aFromFile);
    Player aOther(GetParam(), &aFromContainer);
    ASSERT_EQ(aOther.Open("c"), 0);
    Recording aRecording(GetParam(), nullptr);
    const CmUint32 dwHandle = aRecording.Open("r");
    CCmString strWritten, strRead;
    for (unsigned i = 0; i < 200; ++i) {
        EXPECT_EQ(m_player->Read(c_aInfo, i % 6, 1), 0);
        EXPECT_EQ(aRecording.Write(dwHandle, Pattern(1001, i)), 0);
        EXPECT_EQ(aOther.Read(c_aInfo, i % 6, 1), 0);
        strWritten += Pattern(1001, i);
        strRead += "abcdef"[i % 6];
    }
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    Settle();
    EXPECT_EQ(aFromFile.Take(), strRead);
    EXPECT_EQ(aFromContainer.Take(), strRead);
    ExpectFile("kvr2/7/r", strWritten);
    EXPECT_EQ(m_trace.TakeErrors(), "");
    m_player.reset();
}
