#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/StreamTable.h"

int List(const tagListOptions& aOptions) {
    const tagRecording aRecording = RequireRecording(aOptions.strPath);
    if (aOptions.bJson) {
        Json aDocument = NewDocument("list");
        aDocument["path"] = aOptions.strPath;
        PrintWithStreams(aDocument, aRecording);
    } else {
        PrintStreams(aRecording);
    }
    FinishOutput();
    WarnOfStreams(aRecording);
    return ReportDamage(aRecording);
}
