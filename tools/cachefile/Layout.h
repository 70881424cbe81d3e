#pragma once

#include <cstdint>
#include <vector>

#include "tools/cachefile/Recording.h"

// The places of the parts of a container.

/// A run of bytes of a container, never empty.
struct tagRegion {
    enum Kind { Header, Index, Stream, Gap, Overlap, Missing };
    Kind aKind;
    std::uint64_t qwBegin;
    std::uint64_t qwEnd;
    std::size_t nStream;    ///< Stream and Overlap: number of the entry, or 0
    std::size_t nTurn = 0;  ///< Stream: 1 for the first one in the file, 2 for the next
};

const char* RegionName(tagRegion::Kind aKind);

/// The container from its first byte to its last as a sequence of regions. Bytes that two parts
/// use are an Overlap of the later part. Bytes that the header counts but the file lacks are
/// Missing.
std::vector<tagRegion> LayOutRegions(const tagRecording& aRecording);
