#include "platform/CmEventQueue.h"
#include "tests/support/Player.h"

namespace fs = std::filesystem;

/// Opens of relative paths in a process that changes its directory before the worker opens.
using Place = HostModeTest;
INSTANTIATE_BOTH_MODES(Place);

namespace {

constexpr tagFileDescriber c_describer{3, 2, 1003, 0};

void MakeDirectories() {
    for (const char* const lpName : {"a", "b", "elsewhere"}) fs::create_directory(lpName);
}

/// In the only event of a queue: returns when another one has been queued.
void WaitForMore(const CRefPtr<ICmEventQueue>& pQueue) {
    static_cast<CCmEventQueue*>(pQueue.Get())
        ->WaitUntil(CCmEventQueue::Clock::now() + std::chrono::minutes(1));
}

}  // namespace

TEST_P(Place, IsTheDirectoryAtTheCallForEachOpen) {
    const bool bAsync = GetParam() == Async;
    const fs::path aRoot = fs::current_path();
    MakeDirectories();
    Recording aRecording(GetParam(), &m_sink);
    Player aPlayer(GetParam(), &m_sink, Player::ForFiles);
    {
        std::optional<ThreadGate> aGate;
        if (bAsync) aGate.emplace(Worker());
        for (int i = 0; i < 20; ++i) {
            const std::string strName = std::to_string(i);
            fs::current_path(aRoot / (i % 2 ? "a" : "b"));
            const CmUint32 dwHandle = aRecording.Open("deep\\" + strName);
            fs::current_path(aRoot / "elsewhere");
            EXPECT_EQ(aRecording.Write(dwHandle, strName), 0);
            EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
        }
        fs::current_path(aRoot / "a");
        EXPECT_EQ(aPlayer.OpenFile("played", c_describer, 1), 0);
        aRecording->SetHomeDir("rec");
        EXPECT_EQ(aRecording.TryOpen("a"), bAsync ? 0 : 4001) << "the first component is not made";
        aRecording->SetHomeDir("");
        EXPECT_EQ(aRecording.TryOpen("file.dat"), bAsync ? 0 : 4005) << "the path as it is given";
        fs::current_path(aRoot);
    }
    Settle();
    for (int i = 0; i < 20; ++i)
        ExpectFile((i % 2 ? "a" : "b") + (".\\kvr2\\7\\deep\\" + std::to_string(i)).substr(1),
                   std::to_string(i));
    ExpectFile("a\\kvr2\\7\\played", "");
    EXPECT_TRUE(fs::is_empty("elsewhere"));
    EXPECT_FALSE(Exists("kvr2"));
    EXPECT_EQ(m_trace.TakeErrors().find("file.dat") != std::string::npos, bAsync);
    if (!bAsync) return;
    const std::string strTold = m_sink.Take();
    EXPECT_EQ(strTold.substr(strTold.size() - 28), "Open 0, Open 4001, Open 4005");
}

TEST_P(Place, IsThatOfAnAbsolutePathToo) {
    MakeDirectories();
    CCmString strHome = fs::current_path().string();
    std::replace(strHome.begin(), strHome.end(), '/', '\\');
    Recording aRecording(GetParam(), &m_sink);
    aRecording->SetHomeDir(strHome + "\\made");
    {
        std::optional<ThreadGate> aGate;
        if (GetParam() == Async) aGate.emplace(Worker());
        EXPECT_EQ(aRecording.Write(aRecording.Open("f"), "x"), 0);
        fs::current_path("elsewhere");
    }
    aRecording.Destroy();
    Settle();
    fs::current_path("..");
    ExpectFile("made\\f", "x");
}

TEST_P(Place, IsTheDirectoryAtTheCallForAContainer) {
    MakeDirectories();
    CCmString strBytes(66, '#');
    SetHeader(strBytes, 66, 1, 0);
    SetEntry(strBytes, c_nHeader, {258, 7, 5, 60, 0});
    WriteBytes("c", strBytes);
    EventCounts aCounts;
    const CRefPtr<ICmEventQueue> pQueue = Worker()->GetEventQueue();
    if (GetParam() == Async)  // on the worker, before it opens the container
        pQueue->PostEvent(new TestEvent(aCounts,
                                        [pQueue] {
                                            WaitForMore(pQueue);  // until the open has been queued
                                            fs::current_path("elsewhere");
                                            return 0;
                                        }),
                          1);
    Player aPlayer(GetParam(), &m_sink);
    EXPECT_EQ(aPlayer.Open("c"), 0);
    EXPECT_EQ(aPlayer.m_vecStreams.size(), 1U);
    if (GetParam() == Async) {
        EXPECT_EQ(fs::current_path().filename(), "elsewhere");
    }
}
