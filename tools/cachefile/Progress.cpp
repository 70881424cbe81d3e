#include "tools/cachefile/Progress.h"

#include <algorithm>
#include <cstdio>

#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/System.h"

namespace {

constexpr auto c_aInterval = std::chrono::milliseconds(100);
constexpr std::size_t c_nBar = 24;  // columns, so that the line fits into 80

ProgressMode Resolve(ProgressMode aMode) {
    if (aMode != ProgressMode::Auto) return aMode;
    return System::IsErrorTerminal() ? ProgressMode::Always : ProgressMode::Never;
}

std::string MinutesAndSeconds(double dSeconds) {
    const auto nSeconds = static_cast<long long>(dSeconds + 0.5);
    char aText[48];
    std::snprintf(aText, sizeof aText, "%lld:%02lld", nSeconds / 60, nSeconds % 60);
    return aText;
}

}  // namespace

CProgress::CProgress(ProgressMode aMode, std::string strLabel, std::uint64_t qwTotal)
    : m_mode(Resolve(aMode)), m_strLabel(std::move(strLabel)), m_qwTotal(qwTotal) {}

CProgress::~CProgress() { Erase(); }

void CProgress::Erase() {
    if (m_nDrawn > 0) std::fprintf(stderr, "\r%*s\r", static_cast<int>(m_nDrawn), "");
    m_nDrawn = 0;
}

void CProgress::SetFields(std::map<std::string, std::uint64_t> mapFields) {
    m_mapFields = std::move(mapFields);
}

void CProgress::Show(std::uint64_t qwDone, const std::string& strNote) {
    if (m_mode == ProgressMode::Never) return;
    const Clock::time_point aNow = Clock::now();
    const bool bNewNote = m_bNoted == strNote.empty();  // a note has appeared or disappeared
    if (aNow < m_due && !bNewNote) return;
    m_bNoted = !strNote.empty();
    m_due = aNow + c_aInterval;
    Draw(qwDone, strNote);
}

void CProgress::Finish(std::uint64_t qwDone, const std::string& strNote) {
    if (m_mode != ProgressMode::Never) Draw(qwDone, strNote);
}

void CProgress::Draw(std::uint64_t qwDone, const std::string& strNote) {
    const double dSeconds = std::chrono::duration<double>(Clock::now() - m_begin).count();
    const double dRate = dSeconds > 0 ? static_cast<double>(qwDone) / dSeconds : 0;
    const std::uint64_t qwLeft = m_qwTotal > qwDone ? m_qwTotal - qwDone : 0;
    const double dLeft = dRate > 0 ? static_cast<double>(qwLeft) / dRate : 0;
    if (m_mode == ProgressMode::JsonLines)
        DrawJson(qwDone, dRate, dLeft, strNote);
    else
        DrawLine(qwDone, dRate, dLeft, strNote);
}

void CProgress::DrawJson(std::uint64_t qwDone, double dRate, double dLeft,
                         const std::string& strNote) const {
    const bool bTotal = m_qwTotal > 0;
    Json aObject = {{"progress", m_strLabel},
                    {"done", qwDone},
                    {"total", bTotal ? Json(m_qwTotal) : Json(nullptr)},
                    {"bytes_per_second", static_cast<std::uint64_t>(dRate)},
                    {"seconds_left", bTotal ? Json(dLeft) : Json(nullptr)},
                    {"note", strNote.empty() ? Json(nullptr) : Json(strNote)}};
    for (const auto& [strName, qwValue] : m_mapFields) aObject[strName] = qwValue;
    std::fprintf(stderr, "%s\n", aObject.dump().c_str());
}

void CProgress::DrawLine(std::uint64_t qwDone, double dRate, double dLeft,
                         const std::string& strNote) {
    std::string strLine = m_strLabel;
    if (m_qwTotal > 0) {
        const std::uint64_t qwPart = std::min(qwDone, m_qwTotal);
        std::string strBar(static_cast<std::size_t>(qwPart * c_nBar / m_qwTotal), '#');
        strBar.resize(c_nBar, '.');
        strLine += " [" + strBar + "] " + std::to_string(qwPart * 100 / m_qwTotal) + "% of " +
                   ByteSize(static_cast<double>(m_qwTotal));
    } else {
        strLine += " " + ByteSize(static_cast<double>(qwDone));
    }
    strLine += "  " + ByteSize(dRate) + "/s";
    if (m_qwTotal > 0) strLine += "  " + MinutesAndSeconds(dLeft) + " left";
    if (!strNote.empty()) strLine += "  " + strNote;
    const std::size_t nColumns = strLine.size();
    // Spaces overwrite the end of a longer line that was drawn before.
    strLine.resize(std::max(nColumns, m_nDrawn), ' ');
    std::fprintf(stderr, "\r%s", strLine.c_str());
    std::fflush(stderr);
    m_nDrawn = nColumns;
}
