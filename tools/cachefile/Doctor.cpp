#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Findings.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"

namespace {

void PrintJson(const tagDoctorOptions& aOptions, const std::vector<tagFinding>& vecFindings) {
    Json aDocument = NewDocument("doctor");
    aDocument["path"] = aOptions.strPath;
    aDocument["findings"] = Json::array();
    for (const tagFinding& aFinding : vecFindings)
        aDocument["findings"].push_back({{"severity", SeverityName(aFinding.aSeverity)},
                                         {"code", aFinding.lpCode},
                                         {"offset", aFinding.qwOffset},
                                         {"message", aFinding.strMessage}});
    PrintDocument(aDocument);
}

void PrintText(const tagDoctorOptions& aOptions, const std::vector<tagFinding>& vecFindings) {
    for (const tagFinding& aFinding : vecFindings) {
        const Style aStyle = aFinding.aSeverity == Severity::Error ? Style::Red : Style::Yellow;
        Print(Paint(SeverityName(aFinding.aSeverity), aStyle) + " " + aFinding.lpCode + " " +
              std::to_string(aFinding.qwOffset) + " " + aFinding.strMessage + "\n");
    }
    if (vecFindings.empty()) Warn(Printable(aOptions.strPath) + ": nothing found");
}

}  // namespace

int Doctor(const tagDoctorOptions& aOptions) {
    const tagRecording aRecording = LoadRecording(aOptions.strPath);
    if (!aRecording.IsContainer())
        throw CFailure(Printable(aOptions.strPath) +
                       " is a recording directory; only containers have an index to examine");
    const std::vector<tagFinding> vecFindings = Examine(aRecording);
    if (aOptions.bJson)
        PrintJson(aOptions, vecFindings);
    else
        PrintText(aOptions, vecFindings);
    FinishOutput();
    return vecFindings.empty() ? Exit_Done : Exit_Damage;
}
