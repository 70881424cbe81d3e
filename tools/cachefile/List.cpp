#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Findings.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/StreamTable.h"

int List(const tagListOptions& aOptions) {
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
