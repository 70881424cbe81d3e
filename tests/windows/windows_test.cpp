#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <optional>

#include "tests/support/Player.h"

// What only this system has: its paths, its sharing, its limits.

namespace {

// Hosts on Windows use these types.
static_assert(std::is_same_v<CmInt32, long> && std::is_same_v<CmUint32, unsigned long>);

class WindowsTest : public HostTest {};

/// Another process, which never runs; it only holds files open that it shares with nobody.
class OtherProcess {
 public:
    OtherProcess() {
        char aProgram[MAX_PATH];
        GetModuleFileNameA(nullptr, aProgram, MAX_PATH);
        STARTUPINFOA aStartup = {};
        aStartup.cb = sizeof aStartup;
        EXPECT_TRUE(CreateProcessA(aProgram, nullptr, nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                                   nullptr, nullptr, &aStartup, &m_process));
    }
    ~OtherProcess() {
        TerminateProcess(m_process.hProcess, 0);
        WaitForSingleObject(m_process.hProcess, INFINITE);
        CloseHandle(m_process.hThread);
        CloseHandle(m_process.hProcess);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    bool Hold(const char* lpPath) {
        const HANDLE hHere = CreateFileA(lpPath, GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                         FILE_ATTRIBUTE_NORMAL, nullptr);
        HANDLE hThere = nullptr;
        return DuplicateHandle(GetCurrentProcess(), hHere, m_process.hProcess, &hThere, 0, FALSE,
                               DUPLICATE_SAME_ACCESS | DUPLICATE_CLOSE_SOURCE) != 0;
    }

 private:
    PROCESS_INFORMATION m_process = {};
};

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
    std::optional<OtherProcess> aOther(std::in_place);
    ASSERT_TRUE(aOther->Hold("kvr2\\7\\held.dat"));
    Recording aRecording(Sync, nullptr);
    EXPECT_EQ(aRecording.TryOpen("directory.dat"), 4012);
    EXPECT_EQ(aRecording.TryOpen("held.dat"), 4012);
    EXPECT_EQ(Player(Sync, nullptr).Open("\xFF\xFE not UTF-8"), 4006);
    aOther.reset();
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
