#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The output of the tool: results go to standard output, everything else to standard error.

/// Adds bytes to standard output; FinishOutput writes what is still buffered. Throws CFailure if
/// standard output cannot be written. After its reader has closed it, both do nothing, so that the
/// command continues and returns its own exit code.
void Print(std::string_view strText);
void FinishOutput();
bool IsOutputClosed();

/// Writes a line to standard error, after the tool's name. Never fails.
void Warn(const std::string& strText);

/// While it exists, at most c_qwMaxWarnings calls of Warn write a line, because a damaged recording
/// may have millions of faults. Its end writes how many were left out. Only one at a time, and only
/// on the thread that calls Warn.
class CWarningLimit {
 public:
    CWarningLimit();
    ~CWarningLimit();
    CWarningLimit(const CWarningLimit&) = delete;
    CWarningLimit& operator=(const CWarningLimit&) = delete;
};

/// Writes such a line without a limit. Any thread.
void WriteLine(const std::string& strText);

enum class Style { Plain, Bold, Dim, Red, Green, Yellow, Blue, Magenta, Cyan };

/// Whether standard output shows colours: it is a terminal with colours, and NO_COLOR is not set.
bool HasColours();

/// The text between the codes of its style; unchanged if there are no colours.
std::string Paint(std::string_view strText, Style aStyle);

/// The text with control characters replaced, so that a terminal does not interpret them.
std::string Printable(std::string_view strText);

/// "12,345,678"
std::string Grouped(std::uint64_t qwNumber);
/// "11.8 MiB"
std::string ByteSize(double dBytes);
/// "0.123" with three decimals
std::string Decimal(double dNumber, int nDecimals);

/// Text in columns. Each is as wide as its widest cell.
class CTable {
 public:
    enum Alignment { Left, Right };
    struct Column {
        std::string strHeading;
        Alignment aAlignment;
    };
    /// A cell must be valid only while its row is added.
    struct Cell {
        Cell(std::string_view strContent, Style aContentStyle = Style::Plain)
            : strText(strContent), aStyle(aContentStyle) {}
        Cell(const std::string& strContent) : strText(strContent) {}  // NOLINT: as plain text
        Cell(const char* lpContent) : strText(lpContent) {}           // NOLINT: as plain text
        std::string_view strText;
        Style aStyle = Style::Plain;
    };
    using Row = std::initializer_list<Cell>;

    explicit CTable(std::vector<Column> vecColumns);

    void Add(Row aRow);
    void Print() const;

    /// Prints a table with nRows rows, and has only some of them in memory at a time.
    /// aMakeRow(i, aTake) calls aTake with the cells of row i, or not at all. It is called twice
    /// for each row.
    template <class MakeRow>
    void PrintRows(std::size_t nRows, MakeRow aMakeRow) {
        for (std::size_t i = 0; i < nRows; ++i) aMakeRow(i, [this](Row aRow) { Measure(aRow); });
        for (std::size_t i = 0; i < nRows; ++i) {
            aMakeRow(i, [this](Row aRow) { Add(aRow); });
            if (i % c_nRowsAtOnce == c_nRowsAtOnce - 1) PrintAndForget();
        }
        PrintAndForget();
    }

 private:
    static constexpr std::size_t c_nRowsAtOnce = 1000;

    void Measure(Row aRow);
    void PrintAndForget();

    /// Tables may have very many rows, so one string has the text of all cells.
    struct tagPlaced {
        std::size_t nEnd;    // in the text; the cell begins where the previous one ends
        std::size_t nWidth;  // columns
        Style aStyle;
    };

    std::size_t AppendRow(std::string& strTo, std::size_t nFirst, std::size_t nFrom) const;
    void AddCell(const Cell& aCell, std::size_t nColumn);

    const std::vector<Column> m_vecColumns;
    std::vector<std::size_t> m_vecWidths;
    std::string m_strText;
    std::vector<tagPlaced> m_vecCells;
};
