#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"

namespace {

void PrintJson(const tagDoctorOptions& aOptions, const tagFindings& aFindings) {
    Json aDocument = NewDocument("doctor");
    aDocument["path"] = aOptions.strPath;
    aDocument["errors"] = aFindings.qwErrors;
    aDocument["warnings"] = aFindings.qwWarnings;
    aDocument["totals"] = Json::array();
    for (const tagTotal& aTotal : aFindings.vecTotals)
        aDocument["totals"].push_back({{"severity", SeverityName(aTotal.aSeverity)},
                                       {"code", aTotal.lpCode},
                                       {"count", aTotal.qwCount},
                                       {"folded", aTotal.qwFolded}});
    PrintDocument(aDocument, "findings", aFindings.vecFindings.size(), [&](std::size_t i) {
        const tagFinding& aFinding = aFindings.vecFindings[i];
        return Json{{"severity", SeverityName(aFinding.aSeverity)},
                    {"code", aFinding.lpCode},
                    {"offset", aFinding.qwOffset},
                    {"message", aFinding.strMessage}};
    });
}

void PrintLine(Severity aSeverity, const char* lpCode, std::uint64_t qwOffset,
               const std::string& strMessage) {
    const Style aStyle = aSeverity == Severity::Error ? Style::Red : Style::Yellow;
    Print(Paint(SeverityName(aSeverity), aStyle) + " " + lpCode + " " + std::to_string(qwOffset) +
          " " + strMessage + "\n");
}

/// The findings that were only counted share one line for each code.
void PrintText(const tagFindings& aFindings) {
    for (const tagFinding& a : aFindings.vecFindings)
        PrintLine(a.aSeverity, a.lpCode, a.qwOffset, a.strMessage);
    for (const tagTotal& a : aFindings.vecTotals)
        if (a.qwFolded > 0)
            PrintLine(
                a.aSeverity, a.lpCode, a.qwFirstFolded,
                "and " + Grouped(a.qwFolded) + " more from here on (use `--all` to show them)");
}

}  // namespace

int Doctor(const tagDoctorOptions& aOptions) {
    const tagRecording aRecording = LoadRecording(aOptions.strPath);
    if (!aRecording.IsContainer())
        throw CFailure(Printable(aOptions.strPath) +
                       " is a recording directory; only containers have an index to examine");
    const tagFindings aFindings =
        Examine(aRecording, aOptions.bAll ? c_qwAllOfACode : c_qwMaxOfACode);
    if (aOptions.bJson)
        PrintJson(aOptions, aFindings);
    else
        PrintText(aFindings);
    FinishOutput();
    if (!aOptions.bJson) Warn(Printable(aOptions.strPath) + ": " + CountText(aFindings));
    return aFindings.vecTotals.empty() ? Exit_Done : Exit_Damage;
}
