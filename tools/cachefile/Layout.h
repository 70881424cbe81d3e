#pragma once

#include <cstdint>
#include <vector>

#include "tools/cachefile/Recording.h"

/// Where the parts of a container are.

/// The streams of an index, with what can be derived about them: where each one's bytes end
/// (CContainerIndex::GetStreamExtent), and which earlier entry hides it. Throws CFailure without
/// memory.
std::vector<tagStream> LayOutStreams(const CContainerIndex& aIndex);

/// A run of bytes of a container, never empty.
struct tagRegion {
    enum Kind { Header, Index, Stream, Gap, Overlap, Missing };
    Kind aKind;
    std::uint64_t qwBegin;
    std::uint64_t qwEnd;
    std::size_t nStream;  ///< Stream and Overlap: number of the entry; 0 when it is none
};

const char* RegionName(tagRegion::Kind aKind);

/// The container from its first byte to its last as runs without holes. Bytes that two claim are
/// an Overlap of the later one; what the header promises and the file lacks is Missing.
std::vector<tagRegion> LayOutRegions(const tagRecording& aRecording);
