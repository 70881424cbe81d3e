#include <chrono>

#include "platform/CmCallerThread.h"
#include "tools/cachefile/RecordLoop.h"
#include "tools/cachefile/RecordReport.h"
#include "tools/cachefile/Trace.h"

int Record(const tagRecordOptions& aOptions) {
    Trace::Listen(false);
    const CCmCallerThreadGuard aCallerThread;
    Sources vecSources = MakeSources(aOptions);
    OpenInputs(vecSources);
    WarnOfUnpackable(vecSources, aOptions.aLimits.IsSplit());
    const auto aBegin = std::chrono::steady_clock::now();
    CRecordLoop aLoop(aOptions, vecSources);
    aLoop.Run();
    const std::chrono::duration<double> aTime = std::chrono::steady_clock::now() - aBegin;
    return ReportRecording(
        aOptions, vecSources,
        {aTime.count(), System::IsInterrupted(), aLoop.HasNoteFailure(), aLoop.GetParts()});
}
