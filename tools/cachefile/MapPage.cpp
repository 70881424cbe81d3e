#include "tools/cachefile/MapPage.h"

#include "tools/cachefile/Budgets.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/MapSvg.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/ShownNotes.h"
#include "tools/cachefile/StreamTable.h"
#include "tools/cachefile/System.h"
#include "tools/cachefile/Xml.h"

namespace {

/// JSON that may stand in a script: it cannot end it.
std::string ForScript(const Json& aJson) {
    std::string strText = aJson.dump(-1, ' ', true, Json::error_handler_t::replace);
    for (std::size_t nAt = 0; (nAt = strText.find('<', nAt)) != std::string::npos;)
        strText.replace(nAt, 1, "\\u003c");
    return strText;
}

/// An array of rows, made one by one since there may be a million.
template <class MakeRow>
std::string Rows(std::size_t nRows, MakeRow aMakeRow) {
    std::string strRows = "[";
    for (std::size_t i = 0; i < nRows; ++i)
        strRows += (i == 0 ? "\n" : ",\n") + ForScript(aMakeRow(i));
    return strRows + "]";
}

/// The fields of the notes that the page draws. It checks them, since anyone may have written them.
std::string RecordedRows(const tagRecording& aRecording) {
    const tagShownNotes aNotes(aRecording);
    const auto aNoted =
        SelectNotes(aNotes.aNotes, [](const std::string& /*strStream*/) { return true; });
    return Rows(aNoted.size(), [&](std::size_t i) {
        Json aRow = Json::object();
        for (const char* const lpName :
             {Noted::c_szStream, Noted::c_szSamples, "holes", "all_holes", "lost_bytes"})
            aRow[lpName] = aNoted[i].value(lpName, Json());
        return aRow;
    });
}

std::string Data(const tagRecording& aRecording, const std::vector<tagRegion>& vecRegions) {
    const tagFindings aFindings = Examine(aRecording, c_qwMaxOfACode);
    const Json aFacts = {{"path", aRecording.strPath},
                         {"size", aRecording.qwSize},
                         {"end", vecRegions.back().qwEnd},
                         {"version", Known(aRecording.dwFileVersion)},
                         {"stamp", Known(aRecording.dwCBTimeStamp)},
                         {"found", CountText(aFindings)}};
    return "{facts: " + ForScript(aFacts) + ",\nregions: " +
           Rows(vecRegions.size(),
                [&](std::size_t i) -> Json {
                    const tagRegion& aRegion = vecRegions[i];
                    return {MapClass(aRegion), aRegion.qwBegin, aRegion.qwEnd, aRegion.nStream};
                }) +
           ",\nstreams: " +
           Rows(aRecording.vecStreams.size(),
                [&](std::size_t i) -> Json {
                    const tagStream& aStream = aRecording.vecStreams[i];
                    return {aStream.Name(), aStream.dwExtraInfo, aStream.qwOffset,
                            aStream.qwPresent, StateText(aStream)};
                }) +
           ",\nfindings: " +
           Rows(aFindings.vecFindings.size(),
                [&](std::size_t i) -> Json {
                    const tagFinding& aFinding = aFindings.vecFindings[i];
                    return {SeverityName(aFinding.aSeverity), aFinding.lpCode, aFinding.qwOffset,
                            aFinding.strMessage};
                }) +
           ",\nnoted: " + RecordedRows(aRecording) + "}";
}

void Replace(std::string& strPage, const std::string& strWord, const std::string& strContent) {
    for (std::size_t nAt = 0; (nAt = strPage.find(strWord, nAt)) != std::string::npos;
         nAt += strContent.size())
        strPage.replace(nAt, strWord.size(), strContent);
}

}  // namespace

std::string DrawPage(const tagRecording& aRecording, const std::vector<tagRegion>& vecRegions) {
    if (vecRegions.size() > c_nMaxPageParts)
        throw CFailure("a page shows at most " + Grouped(c_nMaxPageParts) + " parts, but " +
                       Printable(aRecording.strPath) + " has " + Grouped(vecRegions.size()) +
                       " (write an SVG file, or use `--json`)");
    std::string strPage = c_szMapTemplate;
    Replace(strPage, "@TITLE@",
            EscapeXml(System::NativePath(aRecording.strPath).filename().u8string()));
    Replace(strPage, "@PATTERNS@", MapPatterns());
    Replace(strPage, "@COLOURS@", MapColours());
    Replace(strPage, "@DATA@", Data(aRecording, vecRegions));
    return strPage;
}
