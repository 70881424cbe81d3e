#include <algorithm>
#include <thread>

#include "tests/faults/Faults.h"
#include "tests/faults/Memory.h"
#include "tests/support/HostTest.h"

using SlowDisk = HostTest;

TEST_F(SlowDisk, ALimitBoundsTheMemoryAndNothingAcceptedIsMissing) {
    constexpr std::uint64_t c_qwLimit = 1024 * 1024;
    constexpr std::size_t c_nPiece = 8192;
    constexpr int c_nFiles = 2;
    CCacheFileManager::SetPendingLimit(c_qwLimit);
    Faults::SetWriteDelay(std::chrono::milliseconds(10));
    Recording aRecording(Async, &m_sink);
    const CmUint32 aHandles[c_nFiles] = {aRecording.Open("0"), aRecording.Open("1")};
    // Collects the bytes of the files, and how many of them come after a refused write.
    CCmString aModels[c_nFiles];
    for (CCmString& strModel : aModels) strModel.reserve(8 * c_qwLimit);

    const std::size_t nBefore = Memory::StartPeak();
    std::uint64_t qwMost = 0;
    int nRefused = 0;
    for (int i = 0; nRefused < 50 && i < 1000; ++i) {
        const CCmString strPiece = Pattern(c_nPiece, static_cast<unsigned>(i));
        const CmInt32 lResult = aRecording.Write(aHandles[i % c_nFiles], strPiece);
        if (lResult == 0) aModels[i % c_nFiles] += strPiece;
        if (lResult == 0) continue;
        ASSERT_EQ(lResult, 4013);
        qwMost = std::max(qwMost, CCacheFileManager::GetPendingBytes());
        // A recorder that can wait would try again later; this one skips the data.
        if (++nRefused % 5 == 0) CCmCallerThread::WaitAndRun(50);
    }
    EXPECT_EQ(nRefused, 50);
    EXPECT_LE(qwMost, c_qwLimit);
    EXPECT_LE(Memory::Peak() - nBefore, c_qwLimit + c_qwLimit / 2)
        << "pending, gathered in two files, and on its way";
    for (const CmUint32 dwHandle : aHandles) EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    EXPECT_LE(CCacheFileManager::GetPendingBytes(), c_qwLimit + c_nFiles * 32'767);
    CacheFileShutdown();
    Faults::SetWriteDelay({});
    for (int i = 0; i < c_nFiles; ++i) ExpectFile(Recording::PathOf(std::to_string(i)), aModels[i]);
    EXPECT_EQ(CCacheFileManager::GetPendingBytes(), 0U);
    EXPECT_EQ(m_sink.Take(), "Open 0, Open 0");
    EXPECT_EQ(m_lost.Take(), 0U);
}

TEST_F(SlowDisk, BytesArePendingUntilTheyAreWritten) {
    Faults::SetWriteDelay(std::chrono::milliseconds(20));
    Recording aRecording(Async, nullptr);
    EXPECT_EQ(aRecording.Write(aRecording.Open("a"), Pattern(40'000)), 0);
    while (CCacheFileManager::GetPendingBytes() > 0) std::this_thread::yield();
    ExpectFile(Recording::PathOf("a"), Pattern(40'000));
    Faults::SetWriteDelay({});
}
