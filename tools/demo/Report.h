#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/demo/Recorder.h"
#include "tools/demo/Source.h"

/// Text in columns, as wide as what stands in them. The first row is the heading.
class CTable {
 public:
    using Row = std::vector<std::string>;

    /// nLeft columns are aligned on the left, those behind them, the numbers, on the right.
    explicit CTable(std::size_t nLeft) : m_nLeft(nLeft) {}

    void Add(Row aRow) { m_vecRows.push_back(std::move(aRow)); }
    void Print() const;

 private:
    const std::size_t m_nLeft;
    std::vector<Row> m_vecRows;
};

/// How long it took to play a stream.
struct tagPlayed {
    double dPlaySeconds = 0;       ///< from its record file
    double dContainerSeconds = 0;  ///< twice from the container, once in each mode
};

/// What the user is told on standard output.
class CReport {
 public:
    CReport(const Sources& vecSources, const std::vector<tagRecorded>& vecRecorded,
            const std::vector<tagPlayed>& vecPlayed)
        : m_vecSources(vecSources), m_vecRecorded(vecRecorded), m_vecPlayed(vecPlayed) {}

    /// A row for each stream, then the totals; dSeconds is how long everything took together.
    void Print(double dSeconds) const;

 private:
    const Sources& m_vecSources;
    const std::vector<tagRecorded>& m_vecRecorded;
    const std::vector<tagPlayed>& m_vecPlayed;
};
