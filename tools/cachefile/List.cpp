#include "tools/cachefile/Findings.h"
#include "tools/cachefile/Options.h"
#include "tools/cachefile/StreamTable.h"

namespace {

struct tagOptions {
    std::string strPath;
    bool bJson = false;
};

int List(const tagOptions& aOptions) {
    const tagRecording aRecording = RequireRecording(aOptions.strPath);
    if (aOptions.bJson) {
        Json aDocument = NewDocument("list");
        aDocument["path"] = aOptions.strPath;
        aDocument["streams"] = StreamsToJson(aRecording);
        PrintDocument(aDocument);
    } else {
        PrintStreams(aRecording);
    }
    FinishOutput();
    return ReportDamage(aRecording);
}

}  // namespace

void AddList(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagOptions>();
    CLI::App& aCommand = *aTool.add_subcommand("list", "List the streams of a recording");
    Options::AddPath(aCommand, pOptions->strPath, "A recording directory or a container");
    Options::AddJson(aCommand, pOptions->bJson);
    Options::AddExample(aCommand, "cachefile list talk.container");
    aCommand.callback([pOptions, &nExit] { nExit = List(*pOptions); });
}
