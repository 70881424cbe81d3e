#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Findings.h"
#include "tools/cachefile/Options.h"
#include "tools/cachefile/Output.h"

namespace {

struct tagOptions {
    std::string strPath;
    bool bJson = false;
};

void PrintJson(const tagOptions& aOptions, const std::vector<tagFinding>& vecFindings) {
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

void PrintText(const tagOptions& aOptions, const std::vector<tagFinding>& vecFindings) {
    for (const tagFinding& aFinding : vecFindings) {
        const Style aStyle = aFinding.aSeverity == Severity::Error ? Style::Red : Style::Yellow;
        Print(Paint(SeverityName(aFinding.aSeverity), aStyle) + " " + aFinding.lpCode + " " +
              std::to_string(aFinding.qwOffset) + " " + aFinding.strMessage + "\n");
    }
    if (vecFindings.empty()) Warn(Printable(aOptions.strPath) + ": nothing found");
}

int Doctor(const tagOptions& aOptions) {
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

}  // namespace

void AddDoctor(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagOptions>();
    CLI::App& aCommand = *aTool.add_subcommand("doctor", "Tell what is wrong with a container");
    Options::AddPath(aCommand, pOptions->strPath, "A container");
    Options::AddJson(aCommand, pOptions->bJson);
    Options::AddExample(aCommand, "cachefile doctor damaged.container");
    aCommand.callback([pOptions, &nExit] { nExit = Doctor(*pOptions); });
}
