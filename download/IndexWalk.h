#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "download/ContainerFormat.h"
#include "download/EntryBytes.h"
#include "download/IndexReader.h"
#include "download/RecordReader.h"
#include "platform/CmResult.h"

/// One entry as the walk read it.
struct tagWalkEntry {
    CmUint32 dwOffset;              ///< where the entry is in the file
    const unsigned char* lpBytes;   ///< its 32 bytes, valid during the call
    const tagContainerTag* pKnown;  ///< the row of its tag, or null if the tag is unknown
};

/// Walks the index of a container: reads entry after entry, limits their number, and detects
/// circles. The play handler and CContainerIndex use it with different visitors.
///
/// A visitor is a class with these members. It is a template argument instead of an interface,
/// because the call for each entry would take a large part of the time of a walk.
///
///     // Whether to continue when the chain leads back to an entry, as a player does, until the
///     // header's count or a budget. If not, the walk ends; up to two further laps may have been
///     // read by then.
///     static constexpr bool c_bFollowsCircles;
///
///     // An entry was read. The budget of known entries is checked before. A code other than 0
///     // ends the walk.
///     CmInt32 OnEntry(const tagWalkEntry& aEntry);
///
///     // Only if c_bFollowsCircles: instead of reading a lap again, the walk repeats the known
///     // entries of the last lap. nIndex counts the known entries of the whole walk from 0.
///     CmInt32 OnKnownAgain(std::size_t nIndex);
///
/// Lives on the stack of its caller, on the thread that reads the file; the reader outlives it. It
/// returns how it ended and traces nothing. It allocates only the reader's block, and also works
/// without that. Exceptions of the visitor propagate.
class CIndexWalk {
 public:
    enum End {
        End_Complete,    ///< all entries that the header counts were read
        End_Circle,      ///< the chain leads back; only if circles end the walk
        End_Unreadable,  ///< an entry could not be read; GetRead describes how
        End_TooMany,     ///< there is one entry more than a budget allows
        End_Stopped,     ///< the visitor returned a code
    };

    /// At most dwMax entries are read, even if the header counts more.
    CIndexWalk(CIndexReader& aReader, const tagQXFFileHeader& aHeader, CmUint32 dwMax = 0xFFFFFFFF)
        : m_bChained(aHeader.dwIndexType == Index_Chained),
          m_reader(aReader),
          m_dwLeft(aHeader.dwEntryCount < dwMax ? aHeader.dwEntryCount : dwMax) {}

    /// Walks to the end; once for an object.
    template <class Visitor>
    End Run(Visitor& aVisitor);

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
    template <class Visitor>
    End TakeEntries(const unsigned char* lpBytes, Visitor& aVisitor);
    template <class Visitor>
    End TakeEntry(const unsigned char* lpBytes, Visitor& aVisitor);
    template <class Visitor>
    End SkipLaps(Visitor& aVisitor);
    End Fail();
    End Judge(CmInt32 lOfVisitor) {
        m_lStopped = lOfVisitor;
        return lOfVisitor == CACHE_OK ? End_Complete : End_Stopped;
    }

    const bool m_bChained;
    CIndexReader& m_reader;
    CCircleWatch m_watch;
    CmUint32 m_dwLeft;
    CmUint32 m_dwRead = 0;
    std::size_t m_nKnown = 0;
    std::uint64_t m_qwOffset = c_dwFileHeaderSize;
    tagRecordRead m_read;
    CmInt32 m_lStopped = 0;  // the visitor's code
};

template <class Visitor>
CIndexWalk::End CIndexWalk::Run(Visitor& aVisitor) {
    while (m_dwLeft > 0) {
        if (m_bChained && m_watch.HasReturned(m_qwOffset, m_nKnown)) {
            if constexpr (Visitor::c_bFollowsCircles) {
                const End aEnd = SkipLaps(aVisitor);
                if (aEnd != End_Complete || m_dwLeft == 0) return aEnd;
            } else {
                return End_Circle;
            }
        }
        if (m_dwRead == c_dwMaxEntriesRead) return End_TooMany;
        const unsigned char* const lpBytes = m_reader.ReadEntry(m_qwOffset, m_dwLeft);
        if (!lpBytes) return Fail();
        const End aEnd = TakeEntries(lpBytes, aVisitor);
        if (aEnd != End_Complete) return aEnd;
    }
    return End_Complete;
}

/// Takes an entry, and all that follow it in memory if the index is packed.
template <class Visitor>
CIndexWalk::End CIndexWalk::TakeEntries(const unsigned char* lpBytes, Visitor& aVisitor) {
    CmUint32 nMore = 0;
    if (!m_bChained)
        nMore = m_reader.TakePacked(std::min(m_dwLeft, c_dwMaxEntriesRead - m_dwRead) - 1);
    for (;; --nMore, lpBytes += c_dwEntrySize) {
        const CmUint32 dwNext = cachefile_internal::EntryNextOffset(lpBytes);
        const End aEnd = TakeEntry(lpBytes, aVisitor);
        if (aEnd != End_Complete) return aEnd;
        m_qwOffset = m_bChained ? dwNext : m_qwOffset + c_dwEntrySize;
        --m_dwLeft;
        if (nMore == 0) return End_Complete;
    }
}

template <class Visitor>
CIndexWalk::End CIndexWalk::TakeEntry(const unsigned char* lpBytes, Visitor& aVisitor) {
    const tagContainerTag* const pKnown =
        cachefile_internal::FindContainerTag(cachefile_internal::EntryTag(lpBytes));
    if (pKnown && m_nKnown == c_dwMaxKnownEntries) return End_TooMany;
    ++m_dwRead;
    if (pKnown) ++m_nKnown;
    return Judge(aVisitor.OnEntry({static_cast<CmUint32>(m_qwOffset), lpBytes, pKnown}));
}

/// The walk is in a circle. What the remaining whole laps would add is known without reading them
/// again: nothing, or the known entries of the last lap, repeated up to the budget. Fewer entries
/// than one lap are left then, so the walk does not return to the same entry again.
template <class Visitor>
CIndexWalk::End CIndexWalk::SkipLaps(Visitor& aVisitor) {
    const std::size_t nBegin = m_watch.GetKnownBefore();
    const std::size_t nEnd = m_nKnown;
    if (nBegin == nEnd) {
        m_dwLeft = 0;
        return End_Complete;
    }
    for (; m_dwLeft >= m_watch.GetLapLength(); m_dwLeft -= m_watch.GetLapLength()) {
        for (std::size_t nIndex = nBegin; nIndex < nEnd; ++nIndex) {
            if (m_nKnown == c_dwMaxKnownEntries) return End_TooMany;
            ++m_nKnown;
            const End aEnd = Judge(aVisitor.OnKnownAgain(nIndex));
            if (aEnd != End_Complete) return aEnd;
        }
    }
    return End_Complete;
}

namespace cachefile_internal {

/// The index of the first entry that repeats the offset of an earlier one, or the size if all
/// differ. A walk detects a circle late, or not at all if it ends before that; this finds the exact
/// place. Throws std::bad_alloc.
std::size_t CountBeforeRepeat(const std::vector<CmUint32>& vecOffsets);

}  // namespace cachefile_internal

using cachefile_internal::CountBeforeRepeat;
