#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Recordings.h"
#include "tools/cachefile/ShownRecording.h"
#include "tools/cachefile/StreamTable.h"

namespace {

/// The names that the other commands accept, for scripts and for the completion of the shells.
void PrintNames(const tagRecording& aRecording) {
    for (const tagStream& aStream : aRecording.vecStreams)
        if (aStream.IsReachable()) Print(aStream.Name() + "\n");
}

}  // namespace

int List(const tagListOptions& aOptions) {
    const CShownRecording aShown(aOptions.strPath);
    const tagRecording& aRecording = aShown.Get();
    if (aOptions.bNames) {
        PrintNames(aRecording);
    } else if (PrintRecordings("list", aRecording, aOptions.bJson)) {
        return Exit_Done;
    } else if (aOptions.bJson) {
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
