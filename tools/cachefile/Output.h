#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What the tool writes: results to standard output, everything else to standard error.

/// Adds bytes to standard output. Throws CFailure when it can't be written; when nobody reads it
/// any more nothing is written from then on, and the command goes on to see how it ends. What is
/// printed is sure to be out only after FinishOutput.
void Print(std::string_view strText);
void FinishOutput();
bool IsOutputClosed();

/// A line to standard error, after the tool's name. Never fails.
void Warn(const std::string& strText);

enum class Style { Plain, Bold, Dim, Red, Green, Yellow, Blue, Magenta, Cyan };

/// Whether standard output shows colours: a terminal that can, and no NO_COLOR.
bool HasColours();

/// The text with the codes of its style around it, or as it is without colours.
std::string Paint(std::string_view strText, Style aStyle);

/// The text in quotes where a table or a message couldn't hold it otherwise: without codes that
/// a terminal would follow.
std::string Printable(std::string_view strText);

/// "12,345,678"
std::string Grouped(std::uint64_t qwNumber);
/// "11.8 MiB"
std::string ByteSize(double dBytes);
/// With so many decimals: "0.123"
std::string Decimal(double dNumber, int nDecimals);

/// Text in columns, as wide as what stands in them.
class CTable {
 public:
    enum Alignment { Left, Right };
    struct Column {
        std::string strHeading;
        Alignment aAlignment;
    };
    /// A cell is only looked at while its row is added.
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

    /// For a table with very many rows: measure them all first, then add them again and print some
    /// at a time, which forgets those.
    void Measure(Row aRow);
    void PrintAndForget();

 private:
    /// Tables may have very many rows: all text of the cells stands in one string.
    struct tagPlaced {
        std::size_t nEnd;    // in the text; it begins where the one before ends
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
