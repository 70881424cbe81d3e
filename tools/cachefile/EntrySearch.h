#pragma once

#include <cstdint>
#include <vector>

#include "download/ContainerIndex.h"

/// An entry of a damaged container.
struct tagFoundEntry {
    CmUint32 dwOffset;  ///< of the entry itself
    tagMRFD aEntry;
    tagFileDescriber aDescriber;  ///< valid only if bKnown
    bool bKnown;                  ///< the tag is known
    bool bSearched;               ///< it was found by searching and not by following the index
};

struct tagFoundEntries {
    std::vector<tagFoundEntry> vecEntries;
    std::size_t nStray = 0;  ///< followed entries that are data of a stream and were left out
};

/// Finds the entries of a container whose index may be damaged.
///
/// Follows the index as far as possible. Then searches the places where a packed index and this
/// library's writer put entries: every 32 bytes after the header, up to the first data. Data begins
/// where a stream begins whose noted length ends exactly at another stream or at the end, or where
/// a stream begins right after the last of consecutive entries. A damaged offset hardly fits so
/// well. The search also ends after 2 MiB without an entry, and when it has found an entry and
/// there are 1,048,576 in all. Entries found by searching have a known tag, and their reserved
/// words are 0 or they point to the entry after them.
///
/// Throws std::bad_alloc.
tagFoundEntries FindEntries(CContainerIndex& aIndex);

/// The places where data of entries begins and ends, to compare entries with each other.
class CNeighbours {
 public:
    CNeighbours(const std::vector<tagFoundEntry>& vecEntries, const CContainerIndex& aIndex);

    /// Whether the noted length ends exactly where another stream begins, or the container ends.
    bool EndsExactly(const tagFoundEntry& aFound) const;
    /// Whether a noted length of another stream ends exactly where this stream begins.
    bool StartsExactly(const tagFoundEntry& aFound) const;

 private:
    std::vector<std::uint64_t> m_vecStarts;  // sorted, like the following
    std::vector<std::uint64_t> m_vecEnds;
};
