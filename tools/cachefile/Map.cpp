#include <algorithm>
#include <cstdio>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Layout.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::size_t c_nMaxLines = 60;

/// The look of a kind of region: letter and style on the terminal, colour in a drawing.
/// Consecutive streams look different.
struct tagLook {
    char cLetter;
    Style aStyle;
    const char* lpColour;
};

tagLook LookOf(const tagRegion& aRegion) {
    switch (aRegion.aKind) {
        case tagRegion::Header:
            return {'H', Style::Magenta, "#a347ba"};
        case tagRegion::Index:
            return {'I', Style::Blue, "#3465a4"};
        case tagRegion::Stream:
            return aRegion.nStream % 2 ? tagLook{'s', Style::Green, "#4e9a06"}
                                       : tagLook{'S', Style::Cyan, "#06989a"};
        case tagRegion::Gap:
            return {'.', Style::Dim, "#d3d7cf"};
        case tagRegion::Overlap:
            return {'!', Style::Yellow, "#f57900"};
        default:
            return {'x', Style::Red, "#cc0000"};
    }
}

std::string Describe(const tagRegion& aRegion, const tagRecording& aRecording) {
    std::string strText = RegionName(aRegion.aKind);
    const bool bStream = aRegion.aKind == tagRegion::Stream || aRegion.aKind == tagRegion::Overlap;
    if (bStream && aRegion.nStream > 0)
        strText += " " + std::to_string(aRegion.nStream) + " (" +
                   aRecording.vecStreams[aRegion.nStream - 1].Name() + ")";
    return strText;
}

/// Draws the file as a line of nColumns columns. Each column shows the region with most of its
/// bytes. An overlap or a missing part is shown even if it has few bytes.
std::string DrawBar(const std::vector<tagRegion>& vecRegions, std::size_t nColumns) {
    const std::uint64_t qwEnd = vecRegions.back().qwEnd;
    const auto aWeight = [](tagRegion::Kind aKind) {
        return aKind == tagRegion::Overlap || aKind == tagRegion::Missing ? 2 : 1;
    };
    std::vector<const tagRegion*> vecShown(nColumns, nullptr);
    std::vector<std::uint64_t> vecBytes(nColumns, 0);
    for (const tagRegion& aRegion : vecRegions) {
        for (std::size_t n = static_cast<std::size_t>(aRegion.qwBegin * nColumns / qwEnd);
             n < nColumns && n * qwEnd < aRegion.qwEnd * nColumns; ++n) {
            const std::uint64_t qwBytes = std::min(aRegion.qwEnd * nColumns, (n + 1) * qwEnd) -
                                          std::max(aRegion.qwBegin * nColumns, n * qwEnd);
            const tagRegion* const pShown = vecShown[n];
            const int nLead = pShown ? aWeight(aRegion.aKind) - aWeight(pShown->aKind) : 1;
            if (nLead < 0 || (nLead == 0 && qwBytes <= vecBytes[n])) continue;
            vecShown[n] = &aRegion;
            vecBytes[n] = qwBytes;
        }
    }
    std::string strBar;
    for (const tagRegion* pRegion : vecShown) {
        const tagLook aLook = pRegion ? LookOf(*pRegion) : tagLook{' ', Style::Plain, ""};
        strBar += Paint(std::string(1, aLook.cLetter), aLook.aStyle);
    }
    return strBar;
}

void PrintMap(const tagRecording& aRecording, const std::vector<tagRegion>& vecRegions) {
    Print(DrawBar(vecRegions,
                  static_cast<std::size_t>(std::clamp(System::GetTerminalWidth() - 1, 20, 200))) +
          "\n\n");
    CTable aTable({{"", CTable::Left},
                   {"OFFSET", CTable::Right},
                   {"BYTES", CTable::Right},
                   {"WHAT", CTable::Left}});
    for (std::size_t i = 0; i < std::min(vecRegions.size(), c_nMaxLines); ++i) {
        const tagRegion& aRegion = vecRegions[i];
        const tagLook aLook = LookOf(aRegion);
        aTable.Add({{std::string(1, aLook.cLetter), aLook.aStyle},
                    std::to_string(aRegion.qwBegin),
                    std::to_string(aRegion.qwEnd - aRegion.qwBegin),
                    Describe(aRegion, aRecording)});
    }
    aTable.Print();
    if (vecRegions.size() > c_nMaxLines)
        Print("and " + Grouped(vecRegions.size() - c_nMaxLines) +
              " more (use `cachefile list` to see every stream)\n");
}

/// The length of the next UTF-8 character in bytes, or 0 if XML cannot contain it.
std::size_t CharacterLength(std::string_view strText) {
    const auto byFirst = static_cast<unsigned char>(strText.front());
    const std::size_t nLength = byFirst < 0x80                      ? 1
                                : byFirst >= 0xC2 && byFirst < 0xE0 ? 2
                                : byFirst >= 0xE0 && byFirst < 0xF0 ? 3
                                : byFirst >= 0xF0 && byFirst < 0xF5 ? 4
                                                                    : 0;
    if (nLength > strText.size()) return 0;
    CmUint32 dwCode = nLength == 1 ? byFirst : byFirst & (0x7FU >> nLength);
    for (std::size_t i = 1; i < nLength; ++i) {
        if ((strText[i] & 0xC0) != 0x80) return 0;
        dwCode = dwCode << 6 | (strText[i] & 0x3FU);
    }
    const bool bTooLong = (nLength == 3 && dwCode < 0x800) || (nLength == 4 && dwCode < 0x10000);
    const bool bNone = (dwCode >= 0xD800 && dwCode < 0xE000) || dwCode == 0xFFFE ||
                       dwCode == 0xFFFF || dwCode > 0x10FFFF;
    return bTooLong || bNone ? 0 : nLength;
}

std::string EscapeXml(const std::string& strText) {
    std::string strGood;
    const std::string strPrintable = Printable(strText);
    for (std::size_t nAt = 0; nAt < strPrintable.size();) {
        const std::size_t nLength = CharacterLength(std::string_view(strPrintable).substr(nAt));
        strGood += nLength ? strPrintable.substr(nAt, nLength) : "?";
        nAt += nLength ? nLength : 1;
    }
    std::string strResult;
    for (const char c : strGood) {
        if (c == '&')
            strResult += "&amp;";
        else if (c == '<')
            strResult += "&lt;";
        else if (c == '>')
            strResult += "&gt;";
        else
            strResult += c;
    }
    return strResult;
}

/// Every region has a visible width. The next region covers what is too much.
std::string DrawSvg(const tagRecording& aRecording, const std::vector<tagRegion>& vecRegions) {
    constexpr double c_dWidth = 1000, c_dMinWidth = 1;
    const double dScale = c_dWidth / static_cast<double>(vecRegions.back().qwEnd);
    std::string strSvg =
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 1020 110\" "
        "font-family=\"sans-serif\" "
        "font-size=\"14\">\n<rect width=\"1020\" height=\"110\" fill=\"white\"/>\n<text x=\"10\" "
        "y=\"24\">" +
        EscapeXml(aRecording.strPath) + ", " + Grouped(aRecording.qwSize) + " bytes</text>\n";
    for (const tagRegion& aRegion : vecRegions) {
        const bool bOverlap = aRegion.aKind == tagRegion::Overlap;
        const double dBytes = static_cast<double>(aRegion.qwEnd - aRegion.qwBegin);
        char aText[160];
        std::snprintf(aText, sizeof aText,
                      "<rect x=\"%.3f\" y=\"%d\" width=\"%.3f\" height=\"%d\" fill=\"%s\"><title>",
                      10 + static_cast<double>(aRegion.qwBegin) * dScale, bOverlap ? 30 : 40,
                      std::max(dBytes * dScale, c_dMinWidth), bOverlap ? 10 : 40,
                      LookOf(aRegion).lpColour);
        strSvg += aText + EscapeXml(Describe(aRegion, aRecording)) + ": " +
                  Grouped(aRegion.qwEnd - aRegion.qwBegin) + " bytes at " +
                  Grouped(aRegion.qwBegin) + "</title></rect>\n";
    }
    return strSvg + "</svg>\n";
}

void PrintJson(const tagMapOptions& aOptions, const tagRecording& aRecording,
               const std::vector<tagRegion>& vecRegions) {
    Json aDocument = NewDocument("map");
    aDocument["path"] = aOptions.strPath;
    aDocument["size"] = aRecording.qwSize;
    aDocument["output"] = aOptions.strOutput.empty() ? Json(nullptr) : Json(aOptions.strOutput);
    PrintDocument(aDocument, "regions", vecRegions.size(), [&](std::size_t i) -> Json {
        const tagRegion& aRegion = vecRegions[i];
        const tagStream* const pStream =
            aRegion.nStream > 0 ? &aRecording.vecStreams[aRegion.nStream - 1] : nullptr;
        return {{"kind", RegionName(aRegion.aKind)},
                {"offset", aRegion.qwBegin},
                {"bytes", aRegion.qwEnd - aRegion.qwBegin},
                {"entry", pStream ? Json(aRegion.nStream) : Json(nullptr)},
                {"stream", pStream && pStream->bKnown ? Json(pStream->Name()) : Json(nullptr)}};
    });
}

void WriteSvg(const tagMapOptions& aOptions, const std::string& strSvg) {
    const std::filesystem::path aOutput = System::NativePath(aOptions.strOutput);
    std::error_code aError;
    if (std::filesystem::equivalent(aOutput, System::NativePath(aOptions.strPath), aError))
        throw CFailure("the container itself would be overwritten");
    RemoveAbandoned(aOutput);
    COutputFile aFile(aOutput, aOptions.bForce);
    aFile.Write(strSvg.data(), strSvg.size());
    aFile.Finish();
}

}  // namespace

int Map(const tagMapOptions& aOptions) {
    const tagRecording aRecording = RequireContainer(aOptions.strPath);
    const std::vector<tagRegion> vecRegions = LayOutRegions(aRecording);
    if (!aOptions.strOutput.empty()) WriteSvg(aOptions, DrawSvg(aRecording, vecRegions));
    if (aOptions.bJson)
        PrintJson(aOptions, aRecording, vecRegions);
    else if (aOptions.strOutput.empty())
        PrintMap(aRecording, vecRegions);
    FinishOutput();
    return ReportDamage(aRecording);
}
