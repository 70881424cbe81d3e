#pragma once

#include <memory>

#include "download/ContainerFormat.h"
#include "fileop/FileOperation.h"

/// Reads the entries of a container's index, one after another in the order of the walk.
///
/// It reads the file in blocks where entries lie together, but answers as single reads of an entry
/// would: what a block can't give is read again on its own. Lives on the stack of the walk.
class CIndexReader {
 public:
    explicit CIndexReader(IFileOperation& aFile);

    /// Reads the bytes of the entry at qwOffset. dwLength counts those that were there: fewer than
    /// 32 at the end of the file, none at an offset that needs more than 32 bits. Returns the code
    /// of the read.
    CmInt32 ReadEntry(std::uint64_t qwOffset, unsigned char* lpEntry, CmUint32& dwLength);

 private:
    static constexpr CmUint32 c_dwBlockSize = 32768;
    /// A block is read once so many entries have followed one another: a chain that jumps about
    /// can't make the file be read many times over.
    static constexpr CmUint32 c_nFollowedForBlock = 8;

    bool IsInBlock(CmUint32 dwOffset) const {
        return dwOffset >= m_dwBlockOffset && std::uint64_t{dwOffset} + c_dwEntrySize <=
                                                  std::uint64_t{m_dwBlockOffset} + m_dwBlockLength;
    }
    bool LoadBlock(CmUint32 dwOffset);

    IFileOperation& m_file;
    std::unique_ptr<unsigned char[]> m_pBlock;   // null: single reads only
    CmUint32 m_nFollowed = 0;                    // entries in a row that did
    CmUint32 m_dwExpected = c_dwFileHeaderSize;  // where an entry would follow the one before
    CmUint32 m_dwBlockOffset = 0;
    CmUint32 m_dwBlockLength = 0;
};

/// Watches a walk along a chain for coming back to where it was, without remembering the way: the
/// place to compare with is moved up whenever the walk has doubled in length since.
class CCircleWatch {
 public:
    /// Tells it the offset of the entry that is read next, and how many known entries the walk has
    /// found so far. True when the walk was there before; then the two lengths below are set.
    bool IsBack(std::uint64_t qwOffset, std::size_t nKnown);

    CmUint32 GetLapLength() const { return m_dwSteps; }           ///< entries of one lap
    std::size_t GetKnownBefore() const { return m_nKnownThere; }  ///< known ones before that lap

 private:
    std::uint64_t m_qwThere = 0;  // the place to compare with; set by the first call
    std::size_t m_nKnownThere = 0;
    CmUint32 m_dwSteps = 0;     // since then
    CmUint32 m_dwNextMove = 1;  // move up after so many
};
