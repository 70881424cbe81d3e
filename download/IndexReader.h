#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "download/ContainerFormat.h"
#include "download/RecordReader.h"
#include "fileop/FileOperation.h"

/// Reads the header of a container, and then the entries of its index, one after another in the
/// order of the walk.
///
/// It reads the file in blocks: the header with the first entries, and then while the walk moves
/// forward in steps below 32 KiB. The results are those of single reads: what is not completely in
/// a block is read again alone. A block has at most the bytes that the remaining entries need if
/// all steps are as long as the last one.
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
    explicit CIndexReader(IFileOperation& aFile) : m_file(aFile) {}

    /// Reads and parses the header. Call it before the first ReadEntry, or not at all.
    tagRecordRead ReadFileHeader(tagQXFFileHeader& aHeader);

    /// Reads the entry at qwOffset and returns its 32 bytes, which are valid until the next call.
    /// dwLeft is the number of entries that remain, this one included. Returns null if the entry
    /// cannot be read.
    const unsigned char* ReadEntry(std::uint64_t qwOffset, CmUint32 dwLeft) {
        const std::uint64_t qwStep = qwOffset - m_qwLast;  // large if it is backward
        m_nSteps = qwStep - 1 < c_dwLongestStep - 1 ? m_nSteps + 1 : 0;
        m_qwLast = qwOffset;
        m_qwCredit += c_dwCreditPerEntry;
        if (!IsInBlock(qwOffset)) return ReadOutsideBlock(qwOffset, qwStep, dwLeft);
        return m_lpBlock + static_cast<std::size_t>(qwOffset - m_qwBlockOffset);
    }

    /// After a ReadEntry that has returned an entry: how many whole entries follow it directly in
    /// memory, if they are packed; at most nMost. The next ReadEntry is that of the entry after
    /// them.
    CmUint32 TakePacked(CmUint32 nMost) {
        const std::uint64_t qwFrom = m_qwLast - m_qwBlockOffset;
        if (qwFrom >= m_qwBegins) return 0;  // it was read alone
        const std::uint64_t qwCount = (m_qwBegins - 1 - qwFrom) / c_dwEntrySize;
        const CmUint32 nCount = qwCount < nMost ? static_cast<CmUint32>(qwCount) : nMost;
        m_qwLast += std::uint64_t{nCount} * c_dwEntrySize;
        m_qwCredit += std::uint64_t{nCount} * c_dwCreditPerEntry;
        m_nSteps += nCount;
        return nCount;
    }

    // If ReadEntry has returned null: the code of the read, and the number of bytes that were read.
    // These are fewer than 32 at the end of the file, and 0 at an offset that needs more than 32
    // bits.
    CmInt32 GetResult() const { return m_lResult; }
    CmUint32 GetLength() const { return m_dwLength; }

 private:
    /// A block is twice the longest step, so it has at least two entries.
    static constexpr CmUint32 c_dwLongestStep = 32768;
    static constexpr CmUint32 c_dwBlockSize = 2 * c_dwLongestStep;
    /// The first block has the header and 15 entries. Hardly any file ends in it, and the end of
    /// the file would cost another call of the system.
    static constexpr CmUint32 c_dwFirstBlock = c_dwFileHeaderSize + 15 * c_dwEntrySize;
    /// A block is read after this many steps forward, because a chain without such steps needs
    /// none.
    static constexpr CmUint32 c_nStepsForBlock = 8;
    static constexpr CmUint32 c_dwCreditPerEntry = 256;

    bool IsInBlock(std::uint64_t qwOffset) const {
        return qwOffset - m_qwBlockOffset < m_qwBegins;  // a difference below 0 is large
    }
    bool IsBlockDue(CmUint32 dwOffset, CmUint32 dwSize);
    bool HasMemory(CmUint32 dwSize);
    bool LoadBlock(CmUint32 dwOffset, CmUint32 dwSize);
    const unsigned char* ReadOutsideBlock(std::uint64_t qwOffset, std::uint64_t qwStep,
                                          CmUint32 dwLeft);
    const unsigned char* ReadAlone(CmUint32 dwOffset);

    IFileOperation& m_file;
    bool m_bBlocks = true;                 // false: single reads only
    CmUint32 m_nSteps = c_nStepsForBlock;  // consecutive steps forward; the first entry has a block
    std::uint64_t m_qwLast = 0;            // the offset of the last entry
    std::uint64_t m_qwCredit = 0;          // bytes that may be read again
    std::uint64_t m_qwReached = 0;         // the end of all blocks so far
    std::uint64_t m_qwBlockOffset = 0;
    std::uint64_t m_qwBegins = 0;  // how many bytes of the block an entry can begin at
    unsigned char* m_lpBlock = m_aFirst;
    std::unique_ptr<unsigned char[]> m_pLarge;  // of c_dwBlockSize; null until it is needed
    unsigned char m_aFirst[c_dwFirstBlock];     // a small block needs no other memory
    unsigned char m_aAlone[c_dwEntrySize];      // an entry that is not in a block
    CmInt32 m_lResult = 0;
    CmUint32 m_dwLength = 0;
};

/// Detects that a walk along a chain returns to an earlier entry, in constant memory (Brent's
/// algorithm): the place to compare with moves forward each time the number of steps has doubled.
class CCircleWatch {
 public:
    /// Call it before each entry with its offset and the number of known entries so far. Returns
    /// true if the walk was at this offset before, and sets the two numbers below.
    bool HasReturned(std::uint64_t qwOffset, std::size_t nKnown) {
        ++m_dwSteps;
        if (qwOffset == m_qwMark) return true;
        if (m_dwSteps >= m_dwNextMove) MoveMark(qwOffset, nKnown);
        return false;
    }

    CmUint32 GetLapLength() const { return m_dwSteps; }  ///< entries of one lap
    std::size_t GetKnownBefore() const {
        return m_nKnownAtMark;
    }  ///< known entries before that lap

 private:
    void MoveMark(std::uint64_t qwOffset, std::size_t nKnown);

    std::uint64_t m_qwMark = 0;  // the offset to compare with; set by the first call
    std::size_t m_nKnownAtMark = 0;
    CmUint32 m_dwSteps = 0;     // since m_qwMark was set
    CmUint32 m_dwNextMove = 1;  // m_qwMark is set again after this many
};
