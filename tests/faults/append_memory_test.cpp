#include <thread>
#include <utility>
#include <vector>

#include "fileop/BlockStore.h"
#include "tests/faults/Faults.h"
#include "tests/faults/Memory.h"
#include "tests/support/HostTest.h"

/// Counts the allocations of an append during a recording. Unlike times, these counts are the same
/// on any machine.
using AppendMemory = HostModeTest;
INSTANTIATE_BOTH_MODES(AppendMemory);

TEST_P(AppendMemory, AnAppendAllocatesNothing) {
    constexpr std::size_t c_nBlock = 32768;
    Recording aRecording(GetParam(), &m_sink);
    std::vector<CmUint32> vecHandles;
    for (const char* lpName : {"0", "1", "2", "3"}) vecHandles.push_back(aRecording.Open(lpName));

    // Appends whole blocks to each file in turn; the worker finishes one block before the next.
    const auto append = [&](std::size_t nPiece, int nBlocks, bool bCount) {
        const std::vector<unsigned char> vecPiece(nPiece, 'x');
        const std::size_t nPieces = (c_nBlock + nPiece - 1) / nPiece;
        for (std::size_t i = 1; i <= nPieces * static_cast<std::size_t>(nBlocks); ++i)
            for (const CmUint32 dwHandle : vecHandles) {
                const bool bPassesOn = i % nPieces == 0;
                const std::size_t nBefore = Memory::Requests();
                const CmInt32 lResult = aRecording->WriteData(
                    dwHandle, vecPiece.data(), static_cast<CmUint32>(nPiece), c_dwEnd);
                const std::size_t nRequests = Memory::Requests() - nBefore;
                ASSERT_EQ(lResult, 0);
                if (bCount) {
                    ASSERT_EQ(nRequests, 0U) << "append " << i << " of " << nPiece << " bytes";
                }
                if (bPassesOn) Settle();
            }
    };
    for (const std::size_t nPiece : {1000U, 4096U, 65536U, 7U}) {
        append(nPiece, 2, false);
        append(nPiece, 3, true);
    }
}

TEST_P(AppendMemory, IsBoundedForAnyMixOfLengths) {
    constexpr std::size_t c_nStreams = 60;
    constexpr std::size_t c_nMost = 65536;       // a stream's memory between calls
    constexpr std::size_t c_nOneStream = 2048;   // file object, handle and C stream
    constexpr std::size_t c_nStored = 2U << 20;  // blocks that the store keeps
    const std::vector<unsigned char> vecBytes(3'000'000, 'x');
    Recording aRecording(GetParam(), &m_sink);
    std::vector<CmUint32> vecHandles;
    const auto write = [&](std::size_t nStream, std::size_t nLength, CmUint32 dwOffset = c_dwEnd) {
        ASSERT_EQ(aRecording->WriteData(vecHandles[nStream], vecBytes.data(),
                                        static_cast<CmUint32>(nLength), dwOffset),
                  0);
    };
    Settle();
    const std::size_t nBefore = Memory::StartPeak();
    const auto expectBounded = [&](const char* lpAfter) {
        Settle();
        EXPECT_LE(Memory::StartPeak() - nBefore,
                  c_nStreams * (c_nMost + c_nOneStream) + c_nStored + 65536)
            << "after " << lpAfter;
    };
    for (std::size_t i = 0; i < c_nStreams; ++i)
        vecHandles.push_back(aRecording.Open(std::to_string(i)));
    for (std::size_t i = 0; i < c_nStreams; ++i) {
        write(0, 1'900'000);
        Settle();  // the worker returns the large block before a small one is needed
        if (i > 0) write(i, 100);
    }
    expectBounded("small pieces beside large ones");
    SeededRandom aRandom;
    for (int i = 0; i < 3000; ++i) {
        const std::size_t nLength = 1 + aRandom.Below(1U << aRandom.Below(18));
        write(aRandom.Below(c_nStreams), nLength, aRandom.Below(4) ? c_dwEnd : 0);
        if (i % 100 == 0) Settle();
    }
    expectBounded("pieces of all lengths");
}

using BlockMemory = HostTest;

TEST_F(BlockMemory, AWholeBlockIsNotCopied) {
    Recording aRecording(Sync, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    const CCmString strBlock = Pattern(32768);
    const std::size_t nBefore = Memory::StartPeak();
    EXPECT_EQ(aRecording.Write(dwHandle, strBlock), 0);
    EXPECT_LT(Memory::StartPeak() - nBefore, strBlock.size());
}

TEST_F(BlockMemory, AKeptBlockThatIsTooSmallIsNotUsed) {
    CBlockStore& aStore = CBlockStore::Instance();
    for (const std::size_t nCapacity : {100'000U, 40'000U}) {
        CCmString strBlock;
        strBlock.reserve(nCapacity);
        aStore.Give(std::move(strBlock));
    }
    const std::size_t nBefore = Memory::Requests();
    const CCmString strTaken = aStore.Take(90'000, 200'000);
    EXPECT_EQ(Memory::Requests(), nBefore);
    EXPECT_GE(strTaken.capacity(), 90'000U);
}

using QueuedMemory = HostTest;

TEST_F(QueuedMemory, IsCloseToThePendingBytes) {
    constexpr std::size_t c_nOneWrite = 400;  // the request itself
    Recording aRecording(Async, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(1'900'000)), 0);
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(60'000)), 0);
    Settle();  // the store now has blocks that are too large for the next writes
    const ThreadGate aGate(Worker());
    const CCmString strPiece = Pattern(100);
    const std::size_t nBefore = Memory::StartPeak();
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(aRecording.Write(dwHandle, strPiece, 0), 0);
    EXPECT_EQ(CCacheFileManager::GetPendingBytes(), 100'000U);
    EXPECT_LE(Memory::StartPeak() - nBefore, 100'000 + 1000 * c_nOneWrite);
}

TEST_F(QueuedMemory, IsPendingUntilItIsWritten) {
    Faults::SetWriteDelay(std::chrono::milliseconds(20));
    Recording aRecording(Async, nullptr);
    EXPECT_EQ(aRecording.Write(aRecording.Open("a"), Pattern(40'000)), 0);
    while (CCacheFileManager::GetPendingBytes() > 0) std::this_thread::yield();
    ExpectFile(Recording::PathOf("a"), Pattern(40'000));
    Faults::SetWriteDelay({});
}
