#pragma once

#include <cstdint>
#include <vector>

#include "download/ContainerFormat.h"
#include "download/IndexReader.h"
#include "download/RecordReader.h"

/// One entry as the walk read it.
struct tagWalkEntry {
    CmUint32 dwOffset;  ///< where the entry is in the file
    tagMRFDInfo aInfo;  ///< the describer is valid only if bKnown
    bool bKnown;        ///< the tag is known
    CmUint32 dwLeft;    ///< how many entries the header still counts, this one included
};

/// Receives the entries that a walk reads. A code other than 0 ends the walk.
class IIndexVisitor {
 public:
    /// An entry was read. The budget of known entries is checked before.
    virtual CmInt32 OnEntry(const tagWalkEntry& aEntry) = 0;

    /// The walk is in a circle. Instead of reading a lap again, it repeats the known entries of the
    /// last lap. nIndex counts the known entries of the whole walk from 0. dwLeft is as in
    /// tagWalkEntry. Only a walk with Circles_Follow calls it.
    virtual CmInt32 OnKnownAgain(std::size_t nIndex, CmUint32 dwLeft) = 0;

 protected:
    ~IIndexVisitor() = default;
};

/// Walks the index of a container: reads entry after entry, limits their number, and detects
/// circles. The play handler and CContainerIndex use it with different visitors.
///
/// Lives on the stack of its caller, on the thread that reads the file; file and visitor outlive
/// it. It returns how it ended and traces nothing. It allocates only the reader's block, and also
/// works without that. Exceptions of the visitor propagate.
class CIndexWalk {
 public:
    enum End {
        End_Complete,    ///< all entries that the header counts were read
        End_Circle,      ///< the chain leads back; only if circles end the walk
        End_Unreadable,  ///< an entry could not be read; GetRead describes how
        End_TooMany,     ///< there is one entry more than a budget allows
        End_Stopped,     ///< the visitor returned a code
    };

    /// What to do when the chain leads back to an entry.
    enum Circles {
        Circles_Follow,  ///< continue, as a player does, until the header's count or a budget
        Circles_End,     ///< end the walk; up to two further laps may have been read by then
    };

    /// At most dwMax entries are read, even if the header counts more.
    CIndexWalk(IFileOperation& aFile, const tagQXFFileHeader& aHeader, IIndexVisitor& aVisitor,
               Circles aCircles, CmUint32 dwMax = 0xFFFFFFFF);

    /// Walks to the end; once for an object.
    End Run();

    /// The code of the last read, or of the visitor that stopped the walk.
    CmInt32 GetResult() const { return m_lStopped != 0 ? m_lStopped : m_read.GetResult(); }

    /// How the last read of an entry ended.
    const tagRecordRead& GetRead() const { return m_read; }

    /// Where the next entry is: the one that ended the walk, or the one after the last.
    std::uint64_t GetOffset() const { return m_qwOffset; }

    /// How many entries were read and passed to the visitor. Laps that were repeated without
    /// reading do not count.
    CmUint32 GetEntriesRead() const { return m_dwRead; }

 private:
    End ReadEntry(tagWalkEntry& aEntry);
    End TakeEntry(tagWalkEntry& aEntry);
    End SkipLaps();
    End AskVisitor(CmInt32 lResult);

    const CmUint32 m_dwIndexType;
    IIndexVisitor& m_visitor;
    const Circles m_circles;
    CIndexReader m_reader;
    CCircleWatch m_watch;
    const bool m_bWatching;
    CmUint32 m_dwLeft;
    CmUint32 m_dwRead = 0;
    std::size_t m_nKnown = 0;
    std::uint64_t m_qwOffset = c_dwFileHeaderSize;
    tagRecordRead m_read;
    CmInt32 m_lStopped = 0;  // the visitor's code
};

namespace cachefile_internal {

/// The index of the first entry that repeats the offset of an earlier one, or the size if all
/// differ. A walk detects a circle late, or not at all if it ends before that; this finds the exact
/// place. Throws std::bad_alloc.
std::size_t CountBeforeRepeat(const std::vector<CmUint32>& vecOffsets);

}  // namespace cachefile_internal

using cachefile_internal::CountBeforeRepeat;
