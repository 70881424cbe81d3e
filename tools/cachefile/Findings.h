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
    X(ShorterThanNoted, Warning, "shorter-than-noted")  \
    X(LongerThanNoted, Warning, "longer-than-noted")    \
    X(NotedLengths, Warning, "noted-lengths")           \
    X(Gap, Warning, "gap")                              \
    X(EntryHidden, Warning, "entry-hidden")             \
    X(UnknownTag, Warning, "unknown-tag")

enum class Severity { Warning, Error };

struct tagFinding {
    Severity aSeverity;
    const char* lpCode;
    std::uint64_t qwOffset;  ///< where in the file it is
    std::string strMessage;
};

const char* SeverityName(Severity aSeverity);

/// How often a code was found.
struct tagTotal {
    Severity aSeverity;
    const char* lpCode;
    std::uint64_t qwCount;
    std::uint64_t qwFolded;       ///< so many of them, the last ones, are not among the findings
    std::uint64_t qwFirstFolded;  ///< the offset of the first of these
};

/// What an examination found. A damaged container may have as many findings as entries, so most of
/// the same code are only counted.
struct tagFindings {
    std::vector<tagFinding> vecFindings;  ///< in the order of the file's parts
    std::vector<tagTotal> vecTotals;      ///< of the codes that were found, in the order above
    std::uint64_t qwErrors = 0;
    std::uint64_t qwWarnings = 0;
};

constexpr std::uint64_t c_qwMostOfACode = 100;
constexpr std::uint64_t c_qwAllOfACode = ~std::uint64_t{0};

/// What is wrong with a container, from its header and index alone, in the order of the file's
/// parts: header, size, index, streams. Keeps at most qwMost findings of each code. Nothing for a
/// directory.
tagFindings Examine(const tagRecording& aRecording, std::uint64_t qwMost = c_qwMostOfACode);

/// "1 error, 2,000 warnings"
std::string CountText(const tagFindings& aFindings);

/// Reports on standard error that a recording is damaged, if it is; returns how the command ends.
int ReportDamage(const tagRecording& aRecording);
