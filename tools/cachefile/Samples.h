#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/cachefile/JsonDocument.h"

/// How many bytes of a stream arrived in each interval of a recording.
///
/// A source of the record command owns it; one thread uses it. Its memory is limited: when it has
/// as many intervals as it may have, each two of them become one of twice the time. So it has half
/// as many as it may have or more, however long the recording is.
class CSamples {
 public:
    using Clock = std::chrono::steady_clock;

    /// nStreams: how many streams share the memory. Time begins now.
    CSamples(std::size_t nStreams, Clock::time_point aNow);

    void Add(Clock::time_point aNow, std::uint64_t qwBytes);

    /// The samples of a recording that began at strStarted and ends now.
    Json ToJson(const std::string& strStarted, Clock::time_point aNow) const;

 private:
    using Milliseconds = std::chrono::milliseconds;

    Milliseconds TimeAt(Clock::time_point aNow) const;

    std::size_t m_nMost;  // a multiple of 2
    Clock::time_point m_begin;
    Milliseconds m_interval{100};
    std::vector<std::uint64_t> m_vecBytes;  // up to the last interval with bytes
};
