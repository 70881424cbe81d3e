#include "tools/demo/Report.h"

#include <algorithm>
#include <cstdio>

#include "core/CacheFileManager.h"

namespace {

/// How many columns of a terminal the text takes: the bytes that continue a character take none.
std::size_t Width(const std::string& strText) {
    return static_cast<std::size_t>(std::count_if(strText.begin(), strText.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

/// A name may hold anything; a terminal isn't given what would move its cursor.
std::string Printable(std::string strText) {
    std::replace_if(
        strText.begin(), strText.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
    return strText;
}

std::string Fixed(double dValue, int nDigits) {
    char aText[64];
    std::snprintf(aText, sizeof aText, "%.*f", nDigits, dValue);
    return aText;
}

std::string Rate(std::uint64_t qwBytes, double dSeconds) {
    return dSeconds > 0 ? Fixed(static_cast<double>(qwBytes) / 1e6 / dSeconds, 1) : "-";
}

CTable::Row MakeRow(const std::string& strStream, const tagRecorded& aRecorded,
                    const tagPlayed& aPlayed, const std::string& strLost) {
    return {Printable(strStream),
            aRecorded.strFile,
            std::to_string(aRecorded.qwBytes),
            std::to_string(aRecorded.qwPieces),
            std::to_string(aRecorded.qwCallbacks),
            Fixed(aRecorded.dSeconds, 3),
            Rate(aRecorded.qwBytes, aRecorded.dSeconds),
            Rate(aRecorded.qwBytes, aPlayed.dPlaySeconds),
            Rate(2 * aRecorded.qwBytes, aPlayed.dContainerSeconds),
            strLost};
}

}  // namespace

void CTable::Print() const {
    std::vector<std::size_t> vecWidths;
    for (const Row& aRow : m_vecRows) {
        vecWidths.resize(std::max(vecWidths.size(), aRow.size()));
        for (std::size_t n = 0; n < aRow.size(); ++n)
            vecWidths[n] = std::max(vecWidths[n], Width(aRow[n]));
    }
    for (const Row& aRow : m_vecRows) {
        std::string strLine;
        for (std::size_t n = 0; n < aRow.size(); ++n) {
            const std::string strPad(vecWidths[n] - Width(aRow[n]), ' ');
            if (n > 0) strLine += "  ";
            strLine += n < m_nLeft ? aRow[n] + strPad : strPad + aRow[n];
        }
        std::printf("%s\n", strLine.c_str());
    }
}

void CReport::Print(double dSeconds) const {
    CTable aTable(2);
    aTable.Add({"stream", "file", "bytes", "pieces", "callbacks", "seconds", "MB/s", "play MB/s",
                "container MB/s", "bytes lost"});
    tagRecorded aTotal;
    tagPlayed aTotalPlayed;
    for (std::size_t n = 0; n < m_vecRecorded.size(); ++n) {
        const tagRecorded& aRecorded = m_vecRecorded[n];
        aTable.Add(MakeRow(m_vecSources[n]->GetName(), aRecorded, m_vecPlayed[n], ""));
        aTotalPlayed.dPlaySeconds += m_vecPlayed[n].dPlaySeconds;
        aTotalPlayed.dContainerSeconds += m_vecPlayed[n].dContainerSeconds;
        aTotal.qwBytes += aRecorded.qwBytes;
        aTotal.qwPieces += aRecorded.qwPieces;
        aTotal.qwCallbacks += aRecorded.qwCallbacks;
    }
    aTotal.dSeconds = dSeconds;
    aTable.Add(
        MakeRow("total", aTotal, aTotalPlayed, std::to_string(CCacheFileManager::GetLostBytes())));
    aTable.Print();
}
