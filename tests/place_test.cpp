#include "tests/support/Player.h"

namespace fs = std::filesystem;

/// Opens of relative paths in a process that changes its directory before the worker opens.
using Place = HostModeTest;
INSTANTIATE_BOTH_MODES(Place);

TEST_P(Place, ARelativePathMeansTheDirectoryAtTheCall) {
    const bool bAsync = GetParam() == Async;
    const fs::path aRoot = fs::current_path();
    CCmString strRoot = aRoot.string();
    std::replace(strRoot.begin(), strRoot.end(), '/', '\\');
    for (const char* const lpName : {"a", "b", "elsewhere"}) fs::create_directory(lpName);
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
        EXPECT_EQ(aPlayer.OpenFile("played", c_aStream, 1), 0);
        aRecording->SetHomeDir("rec");
        EXPECT_EQ(aRecording.TryOpen("a"), bAsync ? 0 : 4001) << "the first component is not made";
        aRecording->SetHomeDir("");
        EXPECT_EQ(aRecording.TryOpen("file.dat"), bAsync ? 0 : 4005) << "the path as it is given";
        aRecording->SetHomeDir(strRoot + "\\made");
        EXPECT_EQ(aRecording.TryOpen("absolute"), 0);
        fs::current_path(aRoot);
    }
    Settle();
    for (int i = 0; i < 20; ++i)
        ExpectFile((i % 2 ? "a" : "b") + (".\\kvr2\\7\\deep\\" + std::to_string(i)).substr(1),
                   std::to_string(i));
    ExpectFile("a\\kvr2\\7\\played", "");
    ExpectFile("made\\absolute", "");
    EXPECT_TRUE(fs::is_empty("elsewhere"));
    EXPECT_FALSE(Exists("kvr2"));
    EXPECT_EQ(m_trace.TakeErrors().find("file.dat") != std::string::npos, bAsync);
    if (!bAsync) return;
    const std::string strTold = m_sink.Take();
    EXPECT_EQ(strTold.substr(strTold.size() - 36), "Open 0, Open 4001, Open 4005, Open 0");
}
