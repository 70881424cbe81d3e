#pragma once

#include <cstdint>

#include "platform/CmTypes.h"

/// The one file of the file system as a fuzzer sees it: linked in place of the platform layer's
/// own source, it answers every opening for reading, whatever the path. Nothing can be written.
/// One thread.
struct MemoryFile {
    CCmString strBytes;
    std::uint64_t qwBadFrom = 0;  ///< a read that touches [qwBadFrom, qwBadTo) fails, as of a disk
    std::uint64_t qwBadTo = 0;

    // What was asked of it.
    int nOpen = 0;  ///< openings not closed yet
    std::uint64_t qwReads = 0;
    std::uint64_t qwBytesRead = 0;

    static MemoryFile& Instance();
};
