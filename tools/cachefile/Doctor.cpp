#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/ExamineDirectory.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/System.h"

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
                                       {"folded", aTotal.qwOnlyCounted}});
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
void PrintText(const tagFindings& aFindings, bool bAll) {
    for (const tagFinding& a : aFindings.vecFindings)
        PrintLine(a.aSeverity, a.lpCode, a.qwOffset, a.strMessage);
    for (const tagTotal& a : aFindings.vecTotals)
        if (a.qwOnlyCounted > 0)
            PrintLine(a.aSeverity, a.lpCode, a.qwFirstCountedOffset,
                      "and " + Grouped(a.qwOnlyCounted) + " more from here on" +
                          (bAll ? "" : " (use `--all` to show them)"));
}

tagFindings FindAll(const tagDoctorOptions& aOptions, const tagRecording& aRecording) {
    const std::uint64_t qwMax = aOptions.bAll ? c_qwMaxFindings : c_qwMaxOfACode;
    if (aRecording.IsContainer() && aOptions.bDeep)
        throw CFailure("--deep: " + Printable(aOptions.strPath) + " is not a recording directory",
                       Exit_Usage);
    if (aRecording.IsContainer()) return Examine(aRecording, qwMax);
    const std::filesystem::path aPath = System::NativePath(aOptions.strPath);
    const tagNotes aNotes = LoadNotes(NotesOfDirectory(aPath));
    if (StateOfDirectory(aPath, aNotes) == RecordingState::Recording)
        Warn(Printable(aOptions.strPath) + " is being recorded: it is not compared with its notes");
    if (aRecording.vecStreams.empty() && aNotes.aState == tagNotes::None)
        throw CFailure(Printable(aOptions.strPath) + " has no record files");
    return ExamineDirectory(aRecording, aNotes, aOptions.bDeep, qwMax);
}

}  // namespace

int Doctor(const tagDoctorOptions& aOptions) {
    const tagRecording aRecording = LoadRecording(aOptions.strPath);
    const tagFindings aFindings = FindAll(aOptions, aRecording);
    if (aOptions.bJson)
        PrintJson(aOptions, aFindings);
    else
        PrintText(aFindings, aOptions.bAll);
    FinishOutput();
    if (!aOptions.bJson) Warn(Printable(aOptions.strPath) + ": " + CountText(aFindings));
    return aFindings.vecTotals.empty() ? Exit_Done : Exit_Damage;
}
