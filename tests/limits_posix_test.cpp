#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/Player.h"

using Limits = HostModeTest;
INSTANTIATE_BOTH_MODES(Limits);

TEST_P(Limits, ARecordFileGrowsPastFourGigabytes) {
    const std::string strFile = "kvr2/7/big";
    Recording aRecording(GetParam(), &m_sink);
    const CmUint32 dwHandle = aRecording.Open("big");
    Settle();
    // The bytes before it are a hole. Every append queries the end of the file.
    ASSERT_EQ(::truncate(strFile.c_str(), 0xFFFFFFFCLL), 0);
    EXPECT_EQ(aRecording.Write(dwHandle, "abcdefgh" + Pattern(40'000)), 0);
    Settle();
    EXPECT_EQ(std::filesystem::file_size(strFile), 0xFFFFFFFCULL + 40'008);
    EXPECT_EQ(aRecording.Write(dwHandle, "low", 0x7FFFFFFF), 0);
    EXPECT_EQ(aRecording.Write(dwHandle, "far", 0x80000000), GetParam() == Sync ? 4006 : 0);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    Settle();
    EXPECT_EQ(m_sink.Take(), GetParam() == Async ? "Open 0, Write 4006" : "");
    CCacheFileManager::AddLostBytes(0x100000000);
    EXPECT_EQ(m_lost.Take(), 0x100000000U + (GetParam() == Async ? 3 : 0));
    EXPECT_NE(m_trace.TakeErrors().find("error=22 dwOffset=2147483648"), std::string::npos);

    Player aPlayer(GetParam(), &m_sink);
    EXPECT_EQ(aPlayer.OpenFile("big", c_aStream, 0), 0);
    const std::pair<CmUint32, CCmString> aReads[] = {
        {0xFFFFFFFC, "abcdefgh"}, {0xFFFFFFFF, "de"}, {0x7FFFFFFE, CCmString("\0low\0", 5)}};
    for (const auto& [dwOffset, strBytes] : aReads)
        EXPECT_EQ(aPlayer.SyncRead(c_aInfo, dwOffset, static_cast<CmUint32>(strBytes.size())),
                  strBytes);
}

TEST_P(Limits, AThousandFilesStayOpenAndOneTooManyIsRefused) {
    constexpr unsigned c_nFiles = 1'000;
    const rlimit aLimit{c_nFiles + 200, c_nFiles + 200};
    if (::setrlimit(RLIMIT_NOFILE, &aLimit) != 0) GTEST_SKIP() << "the system allows fewer files";
    Recording aRecording(GetParam(), &m_sink);
    std::vector<CmUint32> vecHandles;
    for (unsigned i = 0; i < c_nFiles; ++i)
        vecHandles.push_back(aRecording.Open(std::to_string(i)));
    for (const int nRound : {0, 1})
        for (const CmUint32 dwHandle : vecHandles)
            EXPECT_EQ(aRecording.Write(dwHandle, std::to_string(dwHandle + nRound)), 0);
    // A sanitizer looks into memory through a pipe when it first meets a kind of object.
    EXPECT_EQ(aRecording->CloseFile(vecHandles.back()), 0);
    aRecording->SetHomeDir("nowhere\\");
    EXPECT_EQ(aRecording.TryOpen("before"), GetParam() == Sync ? 4001 : 0);  // not seen again below
    aRecording->SetHomeDir(".\\kvr2\\7");
    Settle();
    m_sink.Take();
    std::vector<int> vecOthers;
    while (vecOthers.empty() || vecOthers.back() >= 0) vecOthers.push_back(::dup(0));
    for (const char* const lpName : {"first", "second"})
        EXPECT_EQ(aRecording.TryOpen(lpName), GetParam() == Sync ? 4006 : 0);
    Settle();
    EXPECT_EQ(m_sink.Take(), GetParam() == Async ? "Open 4006, Open 4006" : "");
    for (const int nFile : vecOthers) ::close(nFile);
    aRecording.Open("third");
    Settle();
    EXPECT_EQ(m_sink.Take(), GetParam() == Async ? "Open 0" : "");
    aRecording.Destroy();
    CacheFileShutdown();
    for (unsigned i = 0; i < c_nFiles; ++i)
        ASSERT_EQ(ReadBytes(Recording::PathOf(std::to_string(i))),
                  std::to_string(vecHandles[i]) + std::to_string(vecHandles[i] + 1));
}

using OpenFiles = HostTest;

TEST_F(OpenFiles, QueuedOpensShareTheDescriptorOfTheirDirectory) {
    const auto aRoot = std::filesystem::current_path();
    Recording aRecording(Async, &m_sink);
    Settle();
    const auto nBefore = CountOpenFiles();
    {
        const ThreadGate aGate(Worker());
        for (int i = 0; i < 100; ++i) {
            if (i % 50 == 0) {
                std::filesystem::create_directory(aRoot / std::to_string(i));
                std::filesystem::current_path(aRoot / std::to_string(i));
            }
            aRecording.Open(std::to_string(i));
        }
        EXPECT_LE(CountOpenFiles(), nBefore + 2);
        std::filesystem::remove(aRoot / "50");
        std::filesystem::current_path(aRoot);
    }
    Settle();
    std::string strWanted = "Open 0";
    for (int i = 1; i < 50; ++i) strWanted += ", Open 0";
    for (int i = 50; i < 100; ++i) strWanted += ", Open 4001";
    EXPECT_EQ(m_sink.Take(), strWanted) << "the second directory was removed meanwhile";
    EXPECT_TRUE(Exists("0/kvr2/7/49"));
    aRecording.Destroy();
    Settle();
    EXPECT_EQ(CountOpenFiles(), nBefore);
}

TEST_P(Limits, NamesAndPathsMayHaveTheLengthThatTheSystemAllows) {
    const bool bAsync = GetParam() == Async;
    const auto open = [&](const CCmString& strHome, const CCmString& strName, CmInt32 lResult) {
        SCOPED_TRACE(std::to_string(strName.size()));
        Recording aRecording(GetParam(), &m_sink);
        aRecording->SetHomeDir(strHome);
        EXPECT_EQ(aRecording.TryOpen(strName), bAsync ? 0 : lResult);
        Settle();
        EXPECT_EQ(m_sink.Take(), bAsync ? "Open " + std::to_string(lResult) : "");
        const bool bTooLong =
            m_trace.TakeErrors().find("File Error=" + std::to_string(ENAMETOOLONG)) !=
            std::string::npos;
        EXPECT_EQ(bTooLong, lResult != 0);
    };
    open(".\\kvr2", CCmString(255, 'n'), 0);
    open(".\\kvr2", CCmString(256, 'n'), 4006);
    CCmString strDeep = ".\\";
    while (strDeep.size() < 3900) strDeep += CCmString(99, 'd') + "\\";
    open(strDeep, CCmString(4095 - strDeep.size(), 'n'), 0);
    open(strDeep, CCmString(4096 - strDeep.size(), 'n'), 4006);
}
