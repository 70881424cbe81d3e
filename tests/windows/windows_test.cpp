#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <cstdlib>
#include <fstream>

#include "tests/support/Player.h"

// What only this system has: its paths, its sharing, its limits.

namespace {

// Hosts on Windows use these types.
static_assert(std::is_same_v<CmInt32, long> && std::is_same_v<CmUint32, unsigned long>);

class WindowsTest : public HostTest {};

}  // namespace

TEST_F(WindowsTest, RecordFilesGrowPastTwoGigabytes) {
    Recording aRecording(Sync, nullptr);
    const CmUint32 dwHandle = aRecording.Open("large.dat");
    EXPECT_EQ(aRecording.Write(dwHandle, "[", 0x7FFFFFFF), 0);
    EXPECT_EQ(aRecording.Write(dwHandle, "]", 0x80000000), 4006);
    EXPECT_EQ(aRecording.Write(dwHandle, "appended"), 0);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    EXPECT_EQ(std::filesystem::file_size("kvr2/7/large.dat"), 0x80000008u);

    Player aPlayer(Sync, nullptr, Player::ForFiles);
    ASSERT_EQ(aPlayer.OpenFile("large.dat", {1, 2, 1001, 0}), 0);
    EXPECT_EQ(aPlayer.SyncRead({1, 1001, 0, 2}, 0x7FFFFFFF, 16), "[appended");
}

TEST_F(WindowsTest, ContainersReachUpToFourGigabytes) {
    constexpr CmUint32 c_dwData = 0xFFFFFFF0;
    CCmString strIndex;
    SetHeader(strIndex, c_dwData + 4, 1, 0);
    SetEntry(strIndex, c_nHeader, {256, 1, 0, c_dwData});
    std::ofstream aOut("big.qxf", std::ios::binary);
    (aOut << strIndex).seekp(static_cast<std::streamoff>(c_dwData)) << "last";
    aOut.close();
    ASSERT_TRUE(aOut.good());
    Player aPlayer(Sync, &m_sink);
    ASSERT_EQ(aPlayer.Open("big.qxf"), 0);
    EXPECT_EQ(aPlayer.Read({1, 1001, 0, 2}, 0, 4), 0);
    EXPECT_EQ(m_sink.Take(), "Data 4");
    EXPECT_EQ(m_sink.m_strData, "last");
}

TEST_F(WindowsTest, WhatCannotBeWrittenIsDenied) {
    std::filesystem::create_directories("kvr2/7/directory.dat");
    WriteBytes(".\\kvr2\\7\\held.dat", "theirs");
    const HANDLE hHeld = CreateFileA("kvr2\\7\\held.dat", GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(hHeld, INVALID_HANDLE_VALUE);
    Recording aRecording(Sync, nullptr);
    EXPECT_EQ(aRecording.TryOpen("directory.dat"), 4012);
    EXPECT_EQ(aRecording.TryOpen("held.dat"), 4012);
    EXPECT_EQ(Player(Sync, nullptr).Open("\xFF\xFE not UTF-8"), 4006);
    CloseHandle(hHeld);
    ExpectFile(".\\kvr2\\7\\held.dat", "theirs");
    EXPECT_EQ(aRecording.TryOpen("held.dat"), 0);
}

TEST_F(WindowsTest, ADiskThatFillsUpInsideABlockIsFull) {
    const char* const lpDisk = std::getenv("CACHEFILE_SMALL_DISK");
    if (!lpDisk) GTEST_SKIP() << "the test windows.full_disk runs this on a small disk";
    Recording aRecording(Sync, nullptr);
    aRecording->SetHomeDir(lpDisk);
    const CmUint32 dwHandle = aRecording.Open("full\\part.dat");
    const CCmString strBlock(100000, 'x');
    CmInt32 lResult = 0;
    int nWritten = 0;
    for (; lResult == 0 && nWritten < 100; ++nWritten)
        lResult = aRecording.Write(dwHandle, strBlock);
    EXPECT_EQ(lResult, 4003);
    EXPECT_EQ(aRecording.Write(dwHandle, strBlock), 4003);
    aRecording.Destroy();
    const auto qwSize = std::filesystem::file_size(CCmString(lpDisk) + "full\\part.dat");
    EXPECT_GE(qwSize, (nWritten - 1) * strBlock.size());
    EXPECT_LT(qwSize, nWritten * strBlock.size());
    std::filesystem::remove_all(CCmString(lpDisk) + "full");
}

TEST_F(WindowsTest, TheLimitOfOpenFilesIsAClearFailure) {
    Recording aRecording(Sync, nullptr);
    CmUint32 dwHandle = 0, dwLast = 0;
    int nOpen = 0;
    while (nOpen < 10000 && !aRecording->OpenWritingFile(std::to_string(nOpen), dwHandle)) {
        dwLast = dwHandle;
        ++nOpen;
    }
    EXPECT_EQ(aRecording.TryOpen("one more"), 4006) << nOpen << " files are open";
    EXPECT_EQ(aRecording->CloseFile(dwLast), 0);
    EXPECT_EQ(aRecording.Write(aRecording.Open("again"), "goes on"), 0);
    aRecording.Destroy();
    ExpectFile(Recording::PathOf("again"), "goes on");
}
