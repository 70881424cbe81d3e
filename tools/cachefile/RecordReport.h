#pragma once

#include "tools/cachefile/RecordLoop.h"

/// How a recording ended.
struct tagOutcome {
    double dSeconds;
    bool bInterrupted;
    bool bNoteFailure;
    std::vector<tagPartResult> vecParts;
};

/// Prints the result of the record command, as text or JSON, and returns its exit code.
int ReportRecording(const tagRecordOptions& aOptions, const Sources& vecSources,
                    const tagOutcome& aOutcome);
