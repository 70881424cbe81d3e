#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

/// How standard error shows the progress of long work. Auto: as a line that is redrawn, if it is a
/// terminal. Always: the same on any output. JsonLines: one object per line, for programs.
enum class ProgressMode { Auto, Always, Never, JsonLines };

/// Shows the progress of one piece of work, with rate and time left, at most 10 times a second.
class CProgress {
 public:
    /// qwTotal is 0 if the amount of work is unknown.
    CProgress(ProgressMode aMode, std::string strLabel, std::uint64_t qwTotal);
    /// Removes the line, so that the next output starts on an empty one.
    ~CProgress();
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    /// strNote says what the work waits for or what has failed, or is empty. The first call with a
    /// note is always shown, and so is the first without one after that.
    void Show(std::uint64_t qwDone, const std::string& strNote = "");
    /// Shows the final state, however recent the last output is.
    void Finish(std::uint64_t qwDone, const std::string& strNote = "");

    /// Further fields of the JSON objects.
    void SetFields(std::map<std::string, std::uint64_t> mapFields);

    /// Removes the line before something else is written to standard error.
    void Erase();

 private:
    using Clock = std::chrono::steady_clock;

    void Draw(std::uint64_t qwDone, const std::string& strNote);
    void DrawJson(std::uint64_t qwDone, double dRate, double dLeft,
                  const std::string& strNote) const;
    void DrawLine(std::uint64_t qwDone, double dRate, double dLeft, const std::string& strNote);

    const ProgressMode m_mode;
    const std::string m_strLabel;
    const std::uint64_t m_qwTotal;
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_due = m_begin;
    std::map<std::string, std::uint64_t> m_mapFields;
    bool m_bNoted = false;     // a note was shown last
    std::size_t m_nDrawn = 0;  // columns of the line
};
