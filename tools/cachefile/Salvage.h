#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/cachefile/EntrySearch.h"

/// A stream of a damaged container and the bytes that belong to it according to its entry.
struct tagSalvagedStream {
    tagFileDescriber aDescriber;
    std::uint64_t qwOffset;
    std::uint64_t qwLength;
    std::uint64_t qwPresent;  ///< how many of these bytes the file has
    bool bSearched;           ///< the entry was found by searching
    int nDoubt;               ///< 0 if both neighbours confirm offset and length; more is worse
    std::vector<std::string> vecFaults;  ///< what contradicts the entry
};

struct tagSalvage {
    std::vector<tagSalvagedStream> vecStreams;  ///< the least doubtful first
    std::vector<std::string> vecLosses;         ///< signs that other streams are lost
    std::vector<std::pair<std::uint64_t, std::uint64_t>> vecUnused;  ///< begin and end of bytes
                                                                     ///< that belong to nothing
};

/// Finds the streams of a container whose index may be damaged, without reading their data.
///
/// The noted length of an entry is used if notes are used at all: if one ends exactly where
/// something else begins, or at least half of them fit before the next stream. Otherwise, and if a
/// note goes beyond the container, a stream ends where the next part begins. Entries of the same
/// name are all returned. Throws std::bad_alloc.
tagSalvage SalvageStreams(CContainerIndex& aIndex);
