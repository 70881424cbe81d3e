#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "download/ContainerFormat.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// One entry of a container's index as it stands there, of a known kind or not.
struct tagIndexEntry {
    CmUint32 dwOffset;  ///< where the entry lies
    tagMRFD aEntry;
};

/// Shows header and index of a container as they are, for tools that look after recordings. An
/// addition to the library: hosts that play use CPlayFileHandler, which hides what it passes over.
///
/// It keeps every entry, of unknown kinds too, and reports how far the index could be followed. It
/// reads header and index only, and the conf stream's 72 bytes; ReadData reads anything else. One
/// object is for one thread at a time; it works inside the call and needs no caller thread.
/// It never throws.
class CACHEFILE_API CContainerIndex {
 public:
    enum EndOfWalk : CmInt32 {
        Walk_None,      ///< no walk: the file can't be read, or its header is none of a container
        Walk_Complete,  ///< as many entries as the header counts were read
        Walk_CutOff,    ///< the next entry could not be read, or not all of it is there
        Walk_Circle,    ///< the chain leads back to an entry that was read before
        Walk_TooMany,   ///< there are more than 4,194,304 entries, or 1,048,576 of known kinds
    };

    CContainerIndex();
    ~CContainerIndex();
    CContainerIndex(const CContainerIndex&) = delete;
    CContainerIndex& operator=(const CContainerIndex&) = delete;

    /// Opens the container strPath (UTF-8, in the library's form) and walks its index; once for an
    /// object. After a failure the object has what was read before it. 0: the index is whole, or
    /// goes in a circle, which a reader follows too. 4002: no container, or its index is cut off.
    /// 4011: no memory, or too many entries. 4001, 4004, 4006: the file could not be opened or
    /// read.
    CmInt32 Open(const CCmString& strPath);

    /// The size that the file had when it was opened, whatever the header says.
    std::uint64_t GetFileSize() const;

    /// The words of the header, 0 as long as it isn't there whole (24 bytes).
    const tagQXFFileHeader& GetFileHeader() const;

    /// The entries in the order of the walk, each once. Valid while the object lives.
    std::size_t GetEntryCount() const;
    const tagIndexEntry& GetEntry(std::size_t nIndex) const;

    EndOfWalk GetEndOfWalk() const;

    /// Where the entry is that would come next: the one that is cut off, or the one that the circle
    /// leads back to.
    std::uint64_t GetEndOffset() const;

    /// The header of the conf stream, of the last one if there are several; null when there is
    /// none, or none whole.
    const tagEntryFileHeader* GetConfFileHeader() const;

    /// Where the stream of an entry ends; also of an entry of an unknown kind. The first call
    /// derives this for all entries: it reads nothing, sorts the offsets, and keeps 12 bytes for
    /// each entry; further calls take constant time. 4009: there is no such entry. 4011: no memory.
    CmInt32 GetStreamExtent(std::size_t nIndex, tagStreamExtent& aExtent) const;

    /// The length of the stream of an entry as CPlayFileHandler::GetStreamLength gives it: dwLength
    /// above without what is past the end of the file or the end that the header gives.
    CmInt32 GetStreamLength(std::size_t nIndex, CmUint32& dwLength) const;

    /// Reads dwLength bytes at qwOffset of the file; dwLength then counts those that were there.
    /// 4007 when the file isn't open, 4009 for a null buffer, 4006 when it can't be read.
    CmInt32 ReadData(std::uint64_t qwOffset, unsigned char* lpBuffer, CmUint32& dwLength);

 private:
    class Impl;
    const std::unique_ptr<Impl> m_pImpl;  // null without memory: Open returns 4011
};
