#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// How the way of long work is shown on standard error: as a line that is drawn over itself, on a
/// terminal or always; not at all; or as a JSON object a line, for programs.
enum class ProgressMode { Auto, Always, Never, Json };

/// Shows how far one piece of work has come, with rate and time left, at most 10 times a second.
class CProgress {
 public:
    /// qwTotal 0: nobody knows how much there is to be done.
    CProgress(ProgressMode aMode, std::string strLabel, std::uint64_t qwTotal);
    /// Wipes the line away, so that what is printed next stands on a clean one.
    ~CProgress();
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    void Show(std::uint64_t qwDone);
    /// The work is done: the last state is shown even if the one before was a moment ago.
    void Finish(std::uint64_t qwDone);

 private:
    using Clock = std::chrono::steady_clock;

    void Draw(std::uint64_t qwDone, double dSeconds);
    void DrawJson(std::uint64_t qwDone, double dRate, double dLeft) const;
    void DrawLine(std::uint64_t qwDone, double dRate, double dLeft);

    const ProgressMode m_mode;
    const std::string m_strLabel;
    const std::uint64_t m_qwTotal;
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_due = m_begin;
    std::size_t m_nDrawn = 0;  // columns of the line
};
