#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "download/ContainerFormat.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

class CIndexContents;

/// One entry of a container's index with its unchanged fields. Its tag may be unknown.
struct tagIndexEntry {
    CmUint32 dwOffset;  ///< of the entry itself
    tagMRFD aEntry;
};

/// Reads the header and the index of a container for tools that examine recordings. An addition to
/// the library: hosts that play use CPlayFileHandler, which hides the entries that it skips.
///
/// It keeps all entries, including those of unknown kinds, and reports how far the index could be
/// read. Open reads the header, the index and the 72 bytes of the conf header; ReadData reads any
/// other bytes. One object is for one thread at a time; it works inside the call and needs no
/// caller thread. It never throws.
class CACHEFILE_API CContainerIndex {
 public:
    enum EndOfWalk : CmInt32 {
        Walk_None,      ///< the file cannot be read, or its header is not that of a container
        Walk_Complete,  ///< all entries that the header counts were read
        Walk_CutOff,    ///< the next entry could not be read, or the file has only a part of it
        Walk_Circle,    ///< the chain leads back to an entry that was read before
        Walk_TooMany,   ///< there are more than 4,194,304 entries, or 1,048,576 of known kinds
    };

    CContainerIndex();
    ~CContainerIndex();
    CContainerIndex(const CContainerIndex&) = delete;
    CContainerIndex& operator=(const CContainerIndex&) = delete;

    /// Opens the container strPath (UTF-8, in the library's form) and reads its index; once for an
    /// object. After a failure the object has what was read before it. 0: the index is complete, or
    /// is a circle, which players accept too. 4002: not a container, or its index is cut off. 4011:
    /// out of memory, or too many entries. 4001, 4004, 4006: the file could not be opened or read.
    CmInt32 Open(const CCmString& strPath);

    /// The size of the file when it was opened, independent of the header.
    std::uint64_t GetFileSize() const;

    /// The fields of the header; all 0 if the file has fewer than 24 bytes.
    const tagQXFFileHeader& GetFileHeader() const;

    /// The entries in the order of the walk, each once. Valid while the object lives.
    std::size_t GetEntryCount() const;
    const tagIndexEntry& GetEntry(std::size_t nIndex) const;

    EndOfWalk GetEndOfWalk() const;

    /// The offset of the next entry: the one that is cut off, or the one that the circle leads back
    /// to.
    std::uint64_t GetEndOffset() const;

    /// The header of the last conf stream whose header is complete, or null.
    const tagEntryFileHeader* GetConfFileHeader() const;

    /// Where the stream of an entry ends; the entry may be of an unknown kind. The first call
    /// derives this for all entries: it reads nothing, sorts the offsets, and keeps 12 bytes per
    /// entry. Further calls take constant time. 4009: there is no such entry. 4011: out of memory.
    CmInt32 GetStreamExtent(std::size_t nIndex, tagStreamExtent& aExtent) const;

    /// The length that CPlayFileHandler::GetStreamLength returns for the stream of an entry: the
    /// dwLength above without the bytes after the end of the file or the end given in the header.
    CmInt32 GetStreamLength(std::size_t nIndex, CmUint32& dwLength) const;

    /// Reads up to dwLength bytes at qwOffset of the file and sets dwLength to their number. 4007:
    /// the file is not open. 4009: lpBuffer is null. 4006: the file could not be read.
    CmInt32 ReadData(std::uint64_t qwOffset, unsigned char* lpBuffer, CmUint32& dwLength);

 private:
    const std::unique_ptr<CIndexContents> m_pContents;  // null without memory: Open returns 4011
};
