#include "tools/cachefile/Samples.h"

#include <algorithm>

namespace {

constexpr std::size_t c_nMostOfAll = 65536;  // of all streams together, if they are not very many
constexpr std::size_t c_nMostOfOne = 512;
constexpr std::size_t c_nLeastOfOne = 16;

}  // namespace

CSamples::CSamples(std::size_t nStreams, Clock::time_point aNow)
    : m_nMost(std::clamp(c_nMostOfAll / std::max<std::size_t>(nStreams, 1), c_nLeastOfOne,
                         c_nMostOfOne) &
              ~std::size_t{1}),
      m_begin(aNow) {}

CSamples::Milliseconds CSamples::TimeAt(Clock::time_point aNow) const {
    return std::chrono::duration_cast<Milliseconds>(aNow - m_begin);
}

void CSamples::Add(Clock::time_point aNow, std::uint64_t qwBytes) {
    const Milliseconds aTime = TimeAt(aNow);
    for (; aTime / m_interval >= static_cast<std::int64_t>(m_nMost); m_interval *= 2) {
        m_vecBytes.resize((m_vecBytes.size() + 1) & ~std::size_t{1});
        for (std::size_t i = 0; i < m_vecBytes.size(); i += 2)
            m_vecBytes[i / 2] = m_vecBytes[i] + m_vecBytes[i + 1];
        m_vecBytes.resize(m_vecBytes.size() / 2);
    }
    const auto nAt = static_cast<std::size_t>(aTime / m_interval);
    m_vecBytes.resize(std::max(m_vecBytes.size(), nAt + 1));
    m_vecBytes[nAt] += qwBytes;
}

Json CSamples::ToJson(const std::string& strStarted, Clock::time_point aNow) const {
    return {{"started", strStarted},
            {"duration_ms", TimeAt(aNow).count()},
            {"interval_ms", m_interval.count()},
            {"bytes", m_vecBytes}};
}
