#include <algorithm>
#include <filesystem>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Layout.h"
#include "tools/cachefile/MapPage.h"
#include "tools/cachefile/MapSvg.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::size_t c_nMaxLines = 60;

/// The look of a kind of region on the terminal. Consecutive streams look different.
struct tagLook {
    char cLetter;
    Style aStyle;
};

tagLook LookOf(const tagRegion& aRegion) {
    switch (aRegion.aKind) {
        case tagRegion::Header:
            return {'H', Style::Magenta};
        case tagRegion::Index:
            return {'I', Style::Blue};
        case tagRegion::Stream:
            return aRegion.nTurn % 2 ? tagLook{'s', Style::Green} : tagLook{'S', Style::Cyan};
        case tagRegion::Gap:
            return {'.', Style::Dim};
        case tagRegion::Overlap:
            return {'!', Style::Yellow};
        default:
            return {'x', Style::Red};
    }
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
        const tagLook aLook = pRegion ? LookOf(*pRegion) : tagLook{' ', Style::Plain};
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
                    DescribeRegion(aRegion, aRecording)});
    }
    aTable.Print();
    if (vecRegions.size() > c_nMaxLines)
        Print("and " + Grouped(vecRegions.size() - c_nMaxLines) +
              " more (use `cachefile list` to see every stream)\n");
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

/// Whether the name of the output asks for a page; any other name gets SVG.
bool IsPage(const std::string& strOutput) {
    const std::string strEnd = std::filesystem::u8path(strOutput).extension().u8string();
    return strEnd == ".html" || strEnd == ".htm";
}

void WriteDrawing(const tagMapOptions& aOptions, const std::string& strDrawing) {
    const std::filesystem::path aOutput = System::NativePath(aOptions.strOutput);
    std::error_code aError;
    if (std::filesystem::equivalent(aOutput, System::NativePath(aOptions.strPath), aError))
        throw CFailure("the container itself would be overwritten");
    RemoveAbandoned(aOutput);
    COutputFile aFile(aOutput, aOptions.bForce);
    aFile.Write(strDrawing.data(), strDrawing.size());
    aFile.Finish();
}

}  // namespace

int Map(const tagMapOptions& aOptions) {
    const tagRecording aRecording = RequireContainer(aOptions.strPath);
    const std::vector<tagRegion> vecRegions = LayOutRegions(aRecording);
    if (!aOptions.strOutput.empty())
        WriteDrawing(aOptions, IsPage(aOptions.strOutput) ? DrawPage(aRecording, vecRegions)
                                                          : DrawSvg(aRecording, vecRegions));
    if (aOptions.bJson)
        PrintJson(aOptions, aRecording, vecRegions);
    else if (aOptions.strOutput.empty())
        PrintMap(aRecording, vecRegions);
    FinishOutput();
    return ReportDamage(aRecording);
}
