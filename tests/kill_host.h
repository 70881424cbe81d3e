#pragma once

#include <atomic>

#include "tests/support/Files.h"

/// What the recorder that is killed and its killer agree upon.

constexpr unsigned c_nStreams = 3;
constexpr std::size_t c_nLongest = 4 << 20;  ///< bytes of a stream
constexpr char c_szPromises[] = "promises";

/// Repeats itself, so that it is made fast, but not in steps in which anything is written.
inline CCmString StreamOf(unsigned nStream) {
    const CCmString strPeriod = Pattern(65'521, nStream * 100'000);
    CCmString strBytes;
    while (strBytes.size() < c_nLongest) strBytes += strPeriod;
    return strBytes.substr(0, c_nLongest);
}

/// Lies in memory that outlives the recorder.
struct Promises {
    std::atomic<bool> bStarted{false};                   ///< something is promised
    std::atomic<std::size_t> aFlushed[c_nStreams] = {};  ///< bytes that are in the file
};
static_assert(std::atomic<std::size_t>::is_always_lock_free, "shared between processes");
