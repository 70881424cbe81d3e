#pragma once

#include <memory>

#include "download/ContainerFormat.h"
#include "fileop/FileOperation.h"

/// Reads the entries of a container's index, one after another in the order of the walk.
///
/// If the walk moves forward in steps below 32 KiB, it reads the file in blocks. The results are
/// those of single reads: an entry that is not completely in a block is read again alone.
///
/// A chain with many jumps cannot make it read the file many times. A block that begins at or after
/// the end of all earlier blocks is free: these blocks together have at most the bytes of the file,
/// an entry and a block. Any other block is paid from a credit, to which each entry adds 256 bytes.
/// So n entries of a file of s bytes cost at most s + s / 2048 + 288 n + 64 KiB bytes for every
/// chain.
///
/// Lives on the stack of the walk.
class CIndexReader {
 public:
    explicit CIndexReader(IFileOperation& aFile);

    /// Reads the bytes of the entry at qwOffset and sets dwLength to their number: fewer than 32 at
    /// the end of the file, 0 at an offset that needs more than 32 bits. Returns the code of the
    /// read.
    CmInt32 ReadEntry(std::uint64_t qwOffset, unsigned char* lpEntry, CmUint32& dwLength);

 private:
    /// A block is twice the longest step, so it has at least two entries.
    static constexpr CmUint32 c_dwLongestStep = 32768;
    static constexpr CmUint32 c_dwBlockSize = 2 * c_dwLongestStep;
    /// A block is read only after this many steps forward, because a short index needs none.
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
    CmUint32 m_nSteps = 0;                      // consecutive steps forward
    CmUint32 m_dwLast = 0;                      // the offset of the last entry
    std::uint64_t m_qwCredit = 0;               // bytes that may be read again
    std::uint64_t m_qwReached = 0;              // the end of all blocks so far
    CmUint32 m_dwBlockOffset = 0;
    CmUint32 m_dwBlockLength = 0;
};

/// Detects that a walk along a chain returns to an earlier entry, in constant memory (Brent's
/// algorithm): the place to compare with moves forward each time the number of steps has doubled.
class CCircleWatch {
 public:
    /// Call it before each entry with its offset and the number of known entries so far. Returns
    /// true if the walk was at this offset before, and sets the two numbers below.
    bool HasReturned(std::uint64_t qwOffset, std::size_t nKnown);

    CmUint32 GetLapLength() const { return m_dwSteps; }  ///< entries of one lap
    std::size_t GetKnownBefore() const {
        return m_nKnownAtMark;
    }  ///< known entries before that lap

 private:
    std::uint64_t m_qwMark = 0;  // the offset to compare with; set by the first call
    std::size_t m_nKnownAtMark = 0;
    CmUint32 m_dwSteps = 0;     // since m_qwMark was set
    CmUint32 m_dwNextMove = 1;  // m_qwMark is set again after this many
};
