#pragma once

#include <memory>

#include "download/ContainerFormat.h"
#include "fileop/FileOperation.h"

/// Reads the entries of a container's index, one after another in the order of the walk.
///
/// It reads the file in blocks where the walk goes forward in steps below 32 KiB, but returns what
/// single reads of each entry would return: what a block can't give is read again on its own.
///
/// A chain that jumps about can't make it read the file many times over. A block that begins at or
/// after the end of all earlier ones is free: all of these together are at most the file, an entry
/// and a block. Any other block costs a credit of 256 bytes that each entry adds. So n entries of a
/// file of s bytes cost at most s + s / 2048 + 288 n + 64 KiB bytes, however they are chained.
///
/// Lives on the stack of the walk.
class CIndexReader {
 public:
    explicit CIndexReader(IFileOperation& aFile);

    /// Reads the bytes of the entry at qwOffset. dwLength counts those that were there: fewer than
    /// 32 at the end of the file, none at an offset that needs more than 32 bits. Returns the code
    /// of the read.
    CmInt32 ReadEntry(std::uint64_t qwOffset, unsigned char* lpEntry, CmUint32& dwLength);

 private:
    /// Two entries at least are in a block, however far apart the steps that lead to it.
    static constexpr CmUint32 c_dwLongestStep = 32768;
    static constexpr CmUint32 c_dwBlockSize = 2 * c_dwLongestStep;
    /// A block is read after so many steps forward: a short index needs none.
    static constexpr CmUint32 c_nStepsForBlock = 8;
    static constexpr CmUint32 c_dwCreditPerEntry = 256;

    bool IsInBlock(CmUint32 dwOffset) const {
        return dwOffset >= m_dwBlockOffset && std::uint64_t{dwOffset} + c_dwEntrySize <=
                                                  std::uint64_t{m_dwBlockOffset} + m_dwBlockLength;
    }
    bool IsBlockDue(CmUint32 dwOffset);
    bool LoadBlock(CmUint32 dwOffset);

    IFileOperation& m_file;
    std::unique_ptr<unsigned char[]> m_pBlock;  // null: single reads only
    CmUint32 m_nSteps = 0;                      // steps forward in a row
    CmUint32 m_dwLast = 0;                      // where the last entry was
    std::uint64_t m_qwCredit = 0;               // bytes that blocks over known ground may cost
    std::uint64_t m_qwReached = 0;              // the end of all blocks so far
    CmUint32 m_dwBlockOffset = 0;
    CmUint32 m_dwBlockLength = 0;
};

/// Watches a walk along a chain for coming back to where it was, without remembering the way: the
/// place to compare with moves forward whenever the length of the walk since then has doubled.
class CCircleWatch {
 public:
    /// Takes the offset of the entry that is read next, and how many known entries the walk has
    /// found so far. True when the walk was there before; the two lengths below are set then.
    bool IsBack(std::uint64_t qwOffset, std::size_t nKnown);

    CmUint32 GetLapLength() const { return m_dwSteps; }           ///< entries of one lap
    std::size_t GetKnownBefore() const { return m_nKnownThere; }  ///< known ones before that lap

 private:
    std::uint64_t m_qwThere = 0;  // the place to compare with; set by the first call
    std::size_t m_nKnownThere = 0;
    CmUint32 m_dwSteps = 0;     // since then
    CmUint32 m_dwNextMove = 1;  // move up after so many
};
