#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

/// How the progress of long work is shown on standard error: as a line that is drawn over itself,
/// on a terminal or always; not at all; or as a JSON object a line, for programs.
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

    /// The note, if there is one, says what is waited for or what has gone wrong.
    void Show(std::uint64_t qwDone, const std::string& strNote = "");
    /// The work is done: the last state is shown even if the one before was a moment ago.
    void Finish(std::uint64_t qwDone, const std::string& strNote = "");

    /// Further fields of the JSON objects.
    void SetFields(std::map<std::string, std::uint64_t> mapFields);

    /// Removes the line before something else is written to standard error.
    void Wipe();

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
    std::size_t m_nDrawn = 0;  // columns of the line
};
