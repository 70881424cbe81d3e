#pragma once

#include <atomic>

#include "tests/support/Files.h"

/// What the recorder that is killed and its killer agree upon.

constexpr unsigned c_nStreams = 3;
constexpr std::size_t c_nLongest = 4 << 20;  ///< bytes of a stream
constexpr char c_szPromises[] = "promises";

inline CCmString StreamOf(unsigned nStream) { return Pattern(c_nLongest, nStream * 100'000'000); }

/// Lies in memory that outlives the recorder.
struct Promises {
    std::atomic<bool> bStarted{false};
    std::atomic<std::size_t> aFlushed[c_nStreams] = {};  ///< bytes behind the last flush
};
static_assert(std::atomic<std::size_t>::is_always_lock_free, "shared between processes");
