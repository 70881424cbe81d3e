#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/cachefile/Recording.h"

/// Every finding there is: X(name, severity, code). An Error means that a reader refuses the
/// container or that bytes are missing; a Warning that something isn't as a writer should leave
/// it. The codes are for programs and stay.
#define CACHEFILE_FINDINGS(X)                           \
    X(HeaderCutOff, Error, "header-cut-off")            \
    X(HeaderSizeZero, Error, "header-size-zero")        \
    X(HeaderWordNotZero, Error, "header-word-not-zero") \
    X(HeaderNoEntries, Error, "header-no-entries")      \
    X(HeaderIndexType, Error, "header-index-type")      \
    X(FileTooShort, Error, "file-too-short")            \
    X(FileTooLong, Warning, "file-too-long")            \
    X(EntryPastEnd, Error, "entry-past-end")            \
    X(EntryPastSize, Warning, "entry-past-size")        \
    X(TooManyEntries, Error, "too-many-entries")        \
    X(ChainCircle, Error, "chain-circle")               \
    X(DataPastEnd, Error, "data-past-end")              \
    X(DataCutOff, Error, "data-cut-off")                \
    X(ConfHeaderCutOff, Error, "conf-header-cut-off")   \
    X(Overlap, Warning, "overlap")                      \
    X(EntryHidden, Warning, "entry-hidden")             \
    X(UnknownTag, Warning, "unknown-tag")

enum class Severity { Warning, Error };

struct tagFinding {
    Severity aSeverity;
    const char* lpCode;
    std::uint64_t qwOffset;  ///< where in the file it lies
    std::string strMessage;
};

const char* SeverityName(Severity aSeverity);

/// What is wrong with a container, from its header and index alone, in the order of the file's
/// parts: header, size, index, streams. Nothing for a directory.
std::vector<tagFinding> Examine(const tagRecording& aRecording);

/// Tells on standard error that a recording is damaged, if it is; returns how the command ends.
int ReportDamage(const tagRecording& aRecording);
