#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/cachefile/Budgets.h"

/// All kinds of findings: X(name, severity, code), those of containers first. An Error means that a
/// reader refuses the container or that bytes are missing or changed. A Warning means that a
/// correct writer would not have written this. Programs use the codes, so they must not change.
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
    X(UnknownTag, Warning, "unknown-tag")               \
    X(NotesUnusable, Warning, "notes-unusable")         \
    X(NotClosed, Warning, "not-closed")                 \
    X(Link, Warning, "link")                            \
    X(NotAFile, Warning, "not-a-file")                  \
    X(NotPackable, Warning, "not-packable")             \
    X(FileMissing, Error, "file-missing")               \
    X(SizeDiffers, Error, "size-differs")               \
    X(FileUnreadable, Error, "file-unreadable")         \
    X(ChecksumDiffers, Error, "checksum-differs")

enum class Finding {
#define CACHEFILE_FINDING(name, severity, code) name,
    CACHEFILE_FINDINGS(CACHEFILE_FINDING)
#undef CACHEFILE_FINDING
};
constexpr std::size_t c_nFindingKinds = static_cast<std::size_t>(Finding::ChecksumDiffers) + 1;

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
    std::uint64_t qwOnlyCounted;  ///< how many of them, the last ones, are not in vecFindings
    std::uint64_t qwFirstCountedOffset;  ///< the offset of the first of these
};

/// What an examination found. A damaged container may have as many findings as entries, so most
/// findings of the same code are only counted.
struct tagFindings {
    std::vector<tagFinding> vecFindings;  ///< in the order of the parts of the file
    std::vector<tagTotal> vecTotals;      ///< of the codes that were found, in the order above
    std::uint64_t qwErrors = 0;
    std::uint64_t qwWarnings = 0;
};

/// "1 error, 2,000 warnings"
std::string CountText(const tagFindings& aFindings);

/// Collects the findings of one examination. Lives on its stack.
class CFindingList {
 public:
    /// Keeps at most qwMax findings of each code, and at most c_qwMaxFindings of all. Counts the
    /// others.
    explicit CFindingList(std::uint64_t qwMax) : m_qwMax(qwMax) {}

    /// Calls aMakeText for the message only if the finding is kept: there may be millions.
    template <class MakeText>
    void Add(Finding aFinding, std::uint64_t qwOffset, MakeText aMakeText) {
        if (Count(aFinding, qwOffset)) Keep(aFinding, qwOffset, aMakeText());
    }

    /// Returns all findings with their totals; once for an object.
    tagFindings Take();

 private:
    bool Count(Finding aFinding, std::uint64_t qwOffset);
    void Keep(Finding aFinding, std::uint64_t qwOffset, std::string strMessage);

    const std::uint64_t m_qwMax;
    std::uint64_t m_qwKept = 0;
    tagTotal m_aTotals[c_nFindingKinds]{};
    tagFindings m_findings;
};
