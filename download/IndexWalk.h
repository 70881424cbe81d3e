#pragma once

#include <cstdint>
#include <vector>

#include "download/ContainerFormat.h"
#include "download/IndexReader.h"

/// One entry as the walk read it.
struct tagWalkEntry {
    CmUint32 dwOffset;  ///< where the entry is in the file
    tagMRFDInfo aInfo;  ///< the describer is valid only if bKnown
    bool bKnown;        ///< the tag is known
    CmUint32 dwLeft;    ///< how many entries the header still counts, this one included
};

/// Receives what a walk reads, and decides what is kept. Codes other than 0 end the walk.
class IIndexVisitor {
 public:
    /// An entry was read. A known one is within the budget of known entries.
    virtual CmInt32 OnEntry(const tagWalkEntry& aEntry) = 0;

    /// The walk goes around a circle. Instead of reading a lap again it repeats the known entries
    /// of the last lap: nIndex counts the known entries of the whole walk from 0. dwLeft is as in
    /// tagWalkEntry. Called only by a walk that follows circles.
    virtual CmInt32 OnKnownAgain(std::size_t nIndex, CmUint32 dwLeft) = 0;

 protected:
    ~IIndexVisitor() = default;
};

/// Walks the index of a container: reads entry after entry, limits how many, and notices circles.
/// The play handler and CContainerIndex share it; their visitors differ.
///
/// Lives on the stack of the function that walks, on the thread that reads the file; file and
/// visitor outlive it. Reports how it ended and traces nothing. It takes no memory but the reader's
/// block, and works without that too. Exceptions of the visitor propagate.
class CIndexWalk {
 public:
    enum End {
        End_Complete,    ///< all entries that the header counts were read
        End_Circle,      ///< the chain leads back; only if circles end the walk
        End_ReadFailed,  ///< GetResult has the code of the read
        End_CutOff,      ///< GetLength has the bytes of the entry that are in the file
        End_BadEntry,    ///< the bytes could not be parsed
        End_TooMany,     ///< one entry more than a budget allows
        End_Stopped,     ///< GetResult has the code of the visitor
    };

    /// What to do when the chain leads back to an entry.
    enum Circles {
        Circles_Follow,  ///< go around as a reader does, until the header's count or a budget
        Circles_End,     ///< end the walk; up to two further laps may have been read by then
    };

    /// dwMost: at most so many entries are read, however many the header counts.
    CIndexWalk(IFileOperation& aFile, const tagQXFFileHeader& aHeader, IIndexVisitor& aVisitor,
               Circles aCircles, CmUint32 dwMost = 0xFFFFFFFF);

    /// Walks; once for an object.
    End Run();

    CmInt32 GetResult() const { return m_lResult; }
    CmUint32 GetLength() const { return m_dwLength; }

    /// Where the next entry is: the one that ended the walk or would come next.
    std::uint64_t GetOffset() const { return m_qwOffset; }

    /// How many entries were read and passed to the visitor. Laps that were repeated without
    /// reading don't count.
    CmUint32 GetEntriesRead() const { return m_dwRead; }

 private:
    End ReadEntry(tagWalkEntry& aEntry);
    End TakeEntry(tagWalkEntry& aEntry);
    End SkipLaps();
    End Stop(End aEnd, CmInt32 lResult);

    const CmUint32 m_dwIndexType;
    IIndexVisitor& m_visitor;
    const Circles m_circles;
    CIndexReader m_reader;
    CCircleWatch m_watch;
    bool m_bWatching;
    CmUint32 m_dwLeft;
    CmUint32 m_dwRead = 0;
    std::size_t m_nKnown = 0;
    std::uint64_t m_qwOffset = c_dwFileHeaderSize;
    CmInt32 m_lResult = 0;
    CmUint32 m_dwLength = 0;
};

/// How many entries come before the first one that repeats the offset of an earlier one: the index
/// of that entry, or the size if all differ. The watch of a walk notices a circle late or, if the
/// walk ends before, not at all; this finds the exact place. Throws std::bad_alloc.
std::size_t CountBeforeRepeat(const std::vector<CmUint32>& vecOffsets);
