#pragma once

#include <cstdint>

#include "platform/CmTypes.h"

/// The only file of the fuzzer's file system. It is linked instead of the platform layer's source,
/// and every open for reading opens it, with any path. It cannot be written. One thread.
struct MemoryFile {
    CCmString strBytes;
    std::uint64_t qwBadFrom = 0;  ///< reads of bytes in [qwBadFrom, qwBadTo) fail
    std::uint64_t qwBadTo = 0;

    // Counts of the calls.
    int nOpen = 0;  ///< opens that are not closed yet
    std::uint64_t qwReads = 0;
    std::uint64_t qwBytesRead = 0;

    static MemoryFile& Instance();
};
