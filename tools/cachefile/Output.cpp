#include "tools/cachefile/Output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "tools/cachefile/Budgets.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::size_t c_nFlushAt = 65536;

bool s_bClosed = false;  // the reader of standard output has closed it

std::uint64_t s_qwMaxWarnings = std::numeric_limits<std::uint64_t>::max();
std::uint64_t s_qwWarnings = 0;  // since the limit was set

/// Text that was printed but not yet written.
std::string& Buffer() {
    static std::string s_strBuffer;
    return s_strBuffer;
}

void OutputFailed(int nErrno) {
    s_bClosed = System::IsClosedPipe(nErrno);
    if (s_bClosed) return;
    if (nErrno == EINTR) throw Interrupted();
    throw CFailure(std::string("cannot write to standard output: ") + std::strerror(nErrno));
}

bool FindColours() {
    const char* const lpNoColour = std::getenv("NO_COLOR");
    const char* const lpTerminal = std::getenv("TERM");
    if (lpNoColour && *lpNoColour) return false;
    if (lpTerminal && std::strcmp(lpTerminal, "dumb") == 0) return false;
    return System::IsOutputTerminal();
}

/// The width of UTF-8 text in columns, approximated by its number of characters.
std::size_t Width(std::string_view strText) {
    return static_cast<std::size_t>(
        std::count_if(strText.begin(), strText.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

void Print(std::string_view strText) {
    if (s_bClosed) return;
    Buffer().append(strText);
    if (Buffer().size() >= c_nFlushAt) FinishOutput();
}

void FinishOutput() {
    const int nErrno = s_bClosed ? 0 : System::WriteOutput(Buffer().data(), Buffer().size());
    Buffer().clear();
    if (nErrno != 0) OutputFailed(nErrno);
}

bool IsOutputClosed() { return s_bClosed; }

void WriteLine(const std::string& strText) {
    std::fprintf(stderr, "cachefile: %s\n", strText.c_str());
}

void Warn(const std::string& strText) {
    if (s_qwWarnings++ < s_qwMaxWarnings) WriteLine(strText);
}

CWarningLimit::CWarningLimit() {
    s_qwWarnings = 0;
    s_qwMaxWarnings = c_qwMaxWarnings;
}

CWarningLimit::~CWarningLimit() {
    if (s_qwWarnings > s_qwMaxWarnings)
        WriteLine("and " + Grouped(s_qwWarnings - s_qwMaxWarnings) + " more warnings");
    s_qwMaxWarnings = std::numeric_limits<std::uint64_t>::max();
}

bool HasColours() {
    static const bool s_bColours = FindColours();
    return s_bColours;
}

std::string Paint(std::string_view strText, Style aStyle) {
    static const char* const s_aCodes[] = {"", "1", "2", "31", "32", "33", "34", "35", "36"};
    if (aStyle == Style::Plain || !HasColours()) return std::string(strText);
    return std::string("\x1b[") + s_aCodes[static_cast<int>(aStyle)] + "m" + std::string(strText) +
           "\x1b[0m";
}

std::string Printable(std::string_view strText) {
    std::string strResult(strText);
    std::replace_if(
        strResult.begin(), strResult.end(),
        [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
    return strResult;
}

std::string Grouped(std::uint64_t qwNumber) {
    std::string strResult = std::to_string(qwNumber);
    for (std::size_t n = strResult.size(); n > 3; n -= 3) strResult.insert(n - 3, ",");
    return strResult;
}

std::string ByteSize(double dBytes) {
    static const char* const s_aUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t nUnit = 0;
    for (; dBytes >= 1024 && nUnit + 1 < std::size(s_aUnits); ++nUnit) dBytes /= 1024;
    return Decimal(dBytes, nUnit == 0 ? 0 : 1) + " " + s_aUnits[nUnit];
}

std::string Decimal(double dNumber, int nDecimals) {
    char aText[64];
    std::snprintf(aText, sizeof aText, "%.*f", nDecimals, dNumber);
    return aText;
}

CTable::CTable(std::vector<Column> vecColumns)
    : m_vecColumns(std::move(vecColumns)), m_vecWidths(m_vecColumns.size(), 0) {
    for (std::size_t i = 0; i < m_vecColumns.size(); ++i)
        AddCell({m_vecColumns[i].strHeading, Style::Bold}, i);
}

void CTable::Add(Row aRow) {
    std::size_t nColumn = 0;
    for (const Cell& aCell : aRow) AddCell(aCell, nColumn++);
}

void CTable::Measure(Row aRow) {
    std::size_t nColumn = 0;
    for (const Cell& aCell : aRow) {
        m_vecWidths[nColumn] = std::max(m_vecWidths[nColumn], Width(aCell.strText));
        ++nColumn;
    }
}

void CTable::PrintAndForget() {
    Print();
    m_strText.clear();
    m_vecCells.clear();
}

void CTable::AddCell(const Cell& aCell, std::size_t nColumn) {
    m_strText += aCell.strText;
    m_vecCells.push_back({m_strText.size(), Width(aCell.strText), aCell.aStyle});
    m_vecWidths[nColumn] = std::max(m_vecWidths[nColumn], m_vecCells.back().nWidth);
}

void CTable::Print() const {
    std::string strLines;
    std::size_t nFrom = 0;
    for (std::size_t n = 0; n < m_vecCells.size(); n += m_vecColumns.size()) {
        nFrom = AppendRow(strLines, n, nFrom);
        if (strLines.size() < c_nFlushAt) continue;
        ::Print(strLines);
        strLines.clear();
    }
    ::Print(strLines);
}

/// Appends the row that begins with the cell nFirst, whose text begins at nFrom. Returns where the
/// text of the next one begins.
std::size_t CTable::AppendRow(std::string& strTo, std::size_t nFirst, std::size_t nFrom) const {
    for (std::size_t i = 0; i < m_vecColumns.size(); ++i) {
        const tagPlaced& aCell = m_vecCells[nFirst + i];
        const std::string_view strText(m_strText.data() + nFrom, aCell.nEnd - nFrom);
        const std::size_t nPad = m_vecWidths[i] - aCell.nWidth;
        if (i > 0) strTo += "  ";
        if (m_vecColumns[i].aAlignment == Right) strTo.append(nPad, ' ');
        if (HasColours())
            strTo += Paint(strText, aCell.aStyle);
        else
            strTo += strText;
        if (m_vecColumns[i].aAlignment == Left && i + 1 < m_vecColumns.size())
            strTo.append(nPad, ' ');
        nFrom = aCell.nEnd;
    }
    strTo += '\n';
    return nFrom;
}
