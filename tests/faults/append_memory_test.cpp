#include <vector>

#include "tests/faults/Memory.h"
#include "tests/support/HostTest.h"

/// What an append asks of the memory manager once a recording is under way: speed that a count
/// holds, on any machine.
using AppendMemory = HostModeTest;
INSTANTIATE_BOTH_MODES(AppendMemory);

TEST_P(AppendMemory, NothingBetweenBlocksAndOnePieceForABlock) {
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
                    ASSERT_LE(nRequests, bPassesOn && GetParam() == Async ? 1U : 0U)
                        << "append " << i << " of " << nPiece << " bytes";
                }
                if (bPassesOn) Settle();
            }
    };
    for (const std::size_t nPiece : {1000U, 4096U, 65536U, 7U}) {
        append(nPiece, 2, false);
        append(nPiece, 3, true);
    }
}
