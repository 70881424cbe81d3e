#include "tools/cachefile/Findings.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"

namespace {

enum class Finding {
#define CACHEFILE_FINDING(name, severity, code) name,
    CACHEFILE_FINDINGS(CACHEFILE_FINDING)
#undef CACHEFILE_FINDING
};

struct tagKind {
    Severity aSeverity;
    const char* lpCode;
};

constexpr tagKind c_aKinds[] = {
#define CACHEFILE_FINDING(name, severity, code) {Severity::severity, code},
    CACHEFILE_FINDINGS(CACHEFILE_FINDING)
#undef CACHEFILE_FINDING
};

std::string Bytes(std::uint64_t qwCount) {
    return Grouped(qwCount) + (qwCount == 1 ? " byte" : " bytes");
}

/// Offsets with the index of the stream that they belong to. There may be millions.
using Places = std::vector<std::pair<CmUint32, CmUint32>>;

/// Most indexes are in order already.
void Sort(Places& vecPlaces) {
    if (!std::is_sorted(vecPlaces.begin(), vecPlaces.end()))
        std::sort(vecPlaces.begin(), vecPlaces.end());
}

class CExaminer {
 public:
    CExaminer(const tagRecording& aRecording, std::uint64_t qwMost)
        : m_recording(aRecording),
          m_index(*aRecording.pIndex),
          m_header(m_index.GetFileHeader()),
          m_qwDeclared(m_header.dwFileSize),
          m_qwMost(qwMost) {}

    tagFindings Run(bool bErrorsOnly) {
        ExamineHeader();
        if (m_index.GetEndOfWalk() != CContainerIndex::Walk_None) {
            ExamineSize();
            if (!bErrorsOnly) ExamineEntries();
            ExamineEndOfWalk();
            for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) ExamineStream(i);
            if (!bErrorsOnly) ExamineBytes();
        }
        CountTotals();
        return std::move(m_findings);
    }

 private:
    /// aMakeText makes the message, if it is wanted.
    template <class MakeText>
    void Add(Finding aFinding, std::uint64_t qwOffset, MakeText aMakeText) {
        const auto nFinding = static_cast<std::size_t>(aFinding);
        tagTotal& aTotal = m_aTotals[nFinding];
        if (aTotal.qwCount++ < m_qwMost)
            m_findings.vecFindings.push_back(
                {c_aKinds[nFinding].aSeverity, c_aKinds[nFinding].lpCode, qwOffset, aMakeText()});
        else if (aTotal.qwFolded++ == 0)
            aTotal.qwFirstFolded = qwOffset;
    }

    void ExamineHeader();
    void ExamineSize();
    void ExamineEntries();
    void ExamineEndOfWalk();
    void ExamineStream(std::size_t nIndex);
    void ExamineData(std::size_t nIndex);
    void ExamineBytes();
    void ExamineStarts();
    bool IsInEntry(CmUint32 dwOffset) const;
    void ExamineLengths();
    void ExamineLength(std::size_t nIndex, CmUint32 dwExtent);
    void ExamineGaps();
    CmUint32 ExtentOf(std::size_t nIndex) const;
    void CountTotals();
    bool IsSomethingAt(std::uint64_t qwOffset) const;
    std::string Who(std::size_t nIndex) const;

    const tagRecording& m_recording;
    const CContainerIndex& m_index;
    const tagQXFFileHeader& m_header;
    const std::uint64_t m_qwDeclared;
    const std::uint64_t m_qwMost;
    Places m_vecEntries;  // where entries begin, sorted
    Places m_vecStarts;   // where data begins, sorted
    tagTotal m_aTotals[std::size(c_aKinds)]{};
    tagFindings m_findings;
};

void CExaminer::CountTotals() {
    for (std::size_t i = 0; i < std::size(c_aKinds); ++i) {
        if (m_aTotals[i].qwCount == 0) continue;
        m_aTotals[i].aSeverity = c_aKinds[i].aSeverity;
        m_aTotals[i].lpCode = c_aKinds[i].lpCode;
        m_findings.vecTotals.push_back(m_aTotals[i]);
        (c_aKinds[i].aSeverity == Severity::Error ? m_findings.qwErrors : m_findings.qwWarnings) +=
            m_aTotals[i].qwCount;
    }
}

std::string CExaminer::Who(std::size_t nIndex) const {
    const tagStream& aStream = m_recording.vecStreams[nIndex];
    return "entry " + std::to_string(nIndex + 1) +
           (aStream.bKnown ? " (" + aStream.Name() + ")" : "");
}

/// A reader stops at the first bad word; here each one is reported.
void CExaminer::ExamineHeader() {
    if (m_recording.qwSize < c_dwFileHeaderSize) {
        Add(Finding::HeaderCutOff, 0, [&] {
            return "the header has " + Bytes(m_recording.qwSize) + " of " +
                   std::to_string(c_dwFileHeaderSize);
        });
        return;
    }
    if (m_header.dwFileSize == 0)
        Add(Finding::HeaderSizeZero, 8, [&] { return std::string("the size is given as 0"); });
    if (m_header.dwMustBeZero != 0)
        Add(Finding::HeaderWordNotZero, 12,
            [&] { return "a word that has to be 0 is " + std::to_string(m_header.dwMustBeZero); });
    if (m_header.dwEntryCount == 0)
        Add(Finding::HeaderNoEntries, 16,
            [&] { return std::string("the number of entries is given as 0"); });
    if (m_header.dwIndexType != Index_Packed && m_header.dwIndexType != Index_Chained)
        Add(Finding::HeaderIndexType, 20, [&] {
            return "the index type is " + std::to_string(m_header.dwIndexType) +
                   ", which is neither 0 nor 1";
        });
}

void CExaminer::ExamineSize() {
    const std::uint64_t qwSize = m_recording.qwSize;
    const std::string strSays =
        "the header says " + Bytes(m_qwDeclared) + ", the file has " + Grouped(qwSize);
    if (qwSize < m_qwDeclared) Add(Finding::FileTooShort, qwSize, [&] { return strSays; });
    if (qwSize > m_qwDeclared) Add(Finding::FileTooLong, m_qwDeclared, [&] { return strSays; });
}

/// Entries of a chain may be anywhere, on one another too.
void CExaminer::ExamineEntries() {
    for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
        const CmUint32 dwOffset = m_index.GetEntry(i).dwOffset;
        m_vecEntries.push_back({dwOffset, static_cast<CmUint32>(i)});
        if (dwOffset < c_dwFileHeaderSize)
            Add(Finding::Overlap, dwOffset, [&] { return Who(i) + " is in the header"; });
        if (std::uint64_t{dwOffset} + c_dwEntrySize > m_qwDeclared)
            Add(Finding::EntryPastSize, dwOffset, [&] {
                return Who(i) + " reaches past the " + Bytes(m_qwDeclared) +
                       " that the header gives";
            });
    }
    Sort(m_vecEntries);
    for (std::size_t i = 1; i < m_vecEntries.size(); ++i)
        if (m_vecEntries[i].first - m_vecEntries[i - 1].first < c_dwEntrySize)
            Add(Finding::Overlap, m_vecEntries[i].first, [&] {
                return Who(m_vecEntries[i].second) + " overlaps " + Who(m_vecEntries[i - 1].second);
            });
}

void CExaminer::ExamineEndOfWalk() {
    const std::uint64_t qwEnd = m_index.GetEndOffset();
    const std::size_t nRead = m_index.GetEntryCount();
    const std::string strNext =
        "entry " + std::to_string(nRead + 1) + " of " + std::to_string(m_header.dwEntryCount);
    switch (m_index.GetEndOfWalk()) {
        case CContainerIndex::Walk_CutOff:
            Add(Finding::EntryPastEnd, qwEnd, [&] {
                return strNext + (m_recording.lIndexResult == CACHE_ERR_BAD_CONTAINER
                                      ? " isn't in the file, or not wholly"
                                      : ResultText(" can't be read", m_recording.lIndexResult));
            });
            break;
        case CContainerIndex::Walk_TooMany:
            Add(Finding::TooManyEntries, qwEnd,
                [&] { return strNext + " is more than a reader keeps"; });
            break;
        case CContainerIndex::Walk_Circle:
            Add(Finding::ChainCircle, m_index.GetEntry(nRead - 1).dwOffset, [&] {
                return Who(nRead - 1) + " leads back to the entry at " + std::to_string(qwEnd) +
                       ": " + std::to_string(nRead) + " of " +
                       std::to_string(m_header.dwEntryCount) + " entries can be reached";
            });
            break;
        default:
            break;
    }
}

void CExaminer::ExamineStream(std::size_t nIndex) {
    const tagStream& aStream = m_recording.vecStreams[nIndex];
    if (!aStream.bKnown) {
        Add(Finding::UnknownTag, aStream.qwEntryOffset,
            [&] { return Who(nIndex) + " has the unknown tag " + std::to_string(*aStream.wTag); });
        return;
    }
    if (aStream.nHiddenBy != 0)
        Add(Finding::EntryHidden, aStream.qwEntryOffset, [&] {
            return Who(nIndex) + " can't be reached: entry " + std::to_string(aStream.nHiddenBy) +
                   " names the same stream";
        });
    ExamineData(nIndex);
}

void CExaminer::ExamineData(std::size_t nIndex) {
    const tagStream& aStream = m_recording.vecStreams[nIndex];
    const std::uint64_t qwStart = aStream.qwOffset;
    const std::uint64_t qwSize = m_recording.qwSize;
    const bool bConf = aStream.wTag == c_wConfTag;
    if (bConf && qwStart + c_dwEntryFileHeaderSize > qwSize)
        Add(Finding::ConfHeaderCutOff, qwStart, [&] {
            return Who(nIndex) + ": of the " + std::to_string(c_dwEntryFileHeaderSize) +
                   " bytes of its header " +
                   std::to_string(qwSize > qwStart ? qwSize - qwStart : 0) +
                   " are in the file; a reader stops here";
        });
    if (qwStart > m_qwDeclared || qwStart > qwSize)
        Add(Finding::DataPastEnd, aStream.qwEntryOffset, [&] {
            return Who(nIndex) + " has its data at " + std::to_string(qwStart) + ", past the end " +
                   (qwStart > qwSize ? "of the file" : "that the header gives");
        });
    else if (aStream.qwPresent < aStream.qwExtent)
        Add(Finding::DataCutOff, qwStart, [&] {
            return Who(nIndex) + " lacks " + Bytes(aStream.qwExtent - aStream.qwPresent) + " of " +
                   Grouped(aStream.qwExtent);
        });
}

/// What the streams make of the container's bytes.
void CExaminer::ExamineBytes() {
    for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i)
        m_vecStarts.push_back({m_index.GetEntry(i).aEntry.dwDataOffset, static_cast<CmUint32>(i)});
    Sort(m_vecStarts);
    ExamineStarts();
    ExamineLengths();
    if (m_index.GetEndOfWalk() == CContainerIndex::Walk_Complete) ExamineGaps();
}

/// Looks for streams that begin in the header, in an entry, or where another one begins.
void CExaminer::ExamineStarts() {
    for (std::size_t i = 0; i < m_vecStarts.size(); ++i) {
        const CmUint32 dwStart = m_vecStarts[i].first;
        const std::size_t nIndex = m_vecStarts[i].second;
        if (!m_recording.vecStreams[nIndex].bKnown) continue;
        const bool bInEntry = IsInEntry(dwStart);
        if (bInEntry || dwStart < c_dwFileHeaderSize)
            Add(Finding::Overlap, dwStart, [&] {
                return Who(nIndex) + " has its data in the " + (bInEntry ? "index" : "header");
            });
        if (i > 0 && m_vecStarts[i - 1].first == dwStart &&
            dwStart < std::min(m_qwDeclared, m_recording.qwSize))
            Add(Finding::Overlap, dwStart, [&] {
                return Who(nIndex) + " begins at the same byte as " +
                       Who(m_vecStarts[i - 1].second);
            });
    }
}

bool CExaminer::IsInEntry(CmUint32 dwOffset) const {
    const auto itAfter = std::upper_bound(m_vecEntries.begin(), m_vecEntries.end(),
                                          std::pair(dwOffset, CmUint32{0xFFFFFFFF}));
    return itAfter != m_vecEntries.begin() && dwOffset - std::prev(itAfter)->first < c_dwEntrySize;
}

CmUint32 CExaminer::ExtentOf(std::size_t nIndex) const {
    tagStreamExtent aExtent{};
    m_index.GetStreamExtent(nIndex, aExtent);  // which worked when the recording was loaded
    return aExtent.dwExtent;
}

/// Compares the lengths that entries note with the places where streams end. If no note fits the
/// words were used for something else.
void CExaminer::ExamineLengths() {
    std::uint64_t qwNotes = 0, qwFitting = 0;
    const auto aForEachNote = [&](auto aDo) {
        for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
            const CmUint32 dwNoted = m_index.GetEntry(i).aEntry.dwStreamSize;
            const CmUint32 dwExtent = ExtentOf(i);
            if (dwNoted != 0 || dwExtent == 0) aDo(i, dwNoted, dwExtent);
        }
    };
    aForEachNote([&](std::size_t, CmUint32 dwNoted, CmUint32 dwExtent) {
        ++qwNotes;
        if (dwNoted <= dwExtent) ++qwFitting;
    });
    if (qwNotes > 0 && qwFitting == 0)
        Add(Finding::NotedLengths, c_dwFileHeaderSize, [&] {
            return qwNotes == 1 ? std::string("the one length that is noted does not fit")
                                : "none of the " + Grouped(qwNotes) + " noted lengths fits";
        });
    else
        aForEachNote([&](std::size_t i, CmUint32, CmUint32 dwExtent) {
            const tagStream& aStream = m_recording.vecStreams[i];
            if (aStream.bKnown && aStream.qwOffset <= m_qwDeclared) ExamineLength(i, dwExtent);
        });
}

void CExaminer::ExamineLength(std::size_t nIndex, CmUint32 dwExtent) {
    const CmUint32 dwNoted = m_index.GetEntry(nIndex).aEntry.dwStreamSize;
    const std::uint64_t qwStart = m_recording.vecStreams[nIndex].qwOffset;
    const std::uint64_t qwEnd = qwStart + dwExtent;
    const auto aText = [&](const std::string& strWhat) {
        return Who(nIndex) + " is noted with " + Bytes(dwNoted) + ", but " + strWhat + " after " +
               Grouped(dwExtent);
    };
    if (dwNoted < dwExtent)
        Add(Finding::LongerThanNoted, qwStart + dwNoted, [&] {
            return Who(nIndex) + " is noted with " + Bytes(dwNoted) +
                   ", but nothing else begins before " + Grouped(dwExtent);
        });
    else if (dwNoted > dwExtent && qwEnd < m_qwDeclared)
        Add(Finding::Overlap, qwEnd, [&] { return aText("something else begins"); });
    else if (dwNoted > dwExtent)
        Add(Finding::ShorterThanNoted, qwEnd, [&] { return aText("the container ends"); });
}

/// Looks for bytes between things. Those after the noted end of a stream were reported there.
void CExaminer::ExamineGaps() {
    std::uint64_t qwCovered = c_dwFileHeaderSize;
    const auto aCover = [&](std::uint64_t qwBegin, std::uint64_t qwEnd) {
        const std::uint64_t qwGapEnd = std::min(qwBegin, m_qwDeclared);
        if (qwGapEnd > qwCovered)
            Add(Finding::Gap, qwCovered,
                [&] { return Bytes(qwGapEnd - qwCovered) + " belong to nothing"; });
        qwCovered = std::max(qwCovered, qwEnd);
    };
    auto itEntry = m_vecEntries.begin();
    for (const auto& [dwStart, dwIndex] : m_vecStarts) {
        for (; itEntry != m_vecEntries.end() && itEntry->first <= dwStart; ++itEntry)
            aCover(itEntry->first, std::uint64_t{itEntry->first} + c_dwEntrySize);
        aCover(dwStart, std::uint64_t{dwStart} + ExtentOf(dwIndex));
    }
    for (; itEntry != m_vecEntries.end(); ++itEntry)
        aCover(itEntry->first, std::uint64_t{itEntry->first} + c_dwEntrySize);
    aCover(m_qwDeclared, m_qwDeclared);
}

}  // namespace

const char* SeverityName(Severity aSeverity) {
    return aSeverity == Severity::Error ? "error" : "warning";
}

tagFindings Examine(const tagRecording& aRecording, std::uint64_t qwMost) {
    return aRecording.IsContainer() ? CExaminer(aRecording, qwMost).Run(false) : tagFindings{};
}

std::string CountText(const tagFindings& aFindings) {
    const auto aText = [](std::uint64_t qwCount, const char* lpWhat) {
        return Grouped(qwCount) + " " + lpWhat + (qwCount == 1 ? "" : "s");
    };
    std::string strText;
    if (aFindings.qwErrors > 0) strText = aText(aFindings.qwErrors, "error");
    if (aFindings.qwWarnings > 0)
        strText += (strText.empty() ? "" : ", ") + aText(aFindings.qwWarnings, "warning");
    return strText.empty() ? "nothing found" : strText;
}

int ReportDamage(const tagRecording& aRecording) {
    if (!aRecording.IsContainer()) return Exit_Done;
    const tagFindings aFindings = CExaminer(aRecording, 1).Run(true);
    if (aFindings.qwErrors == 0) return Exit_Done;
    const auto itFirst = std::find_if(
        aFindings.vecFindings.begin(), aFindings.vecFindings.end(),
        [](const tagFinding& aFinding) { return aFinding.aSeverity == Severity::Error; });
    Warn(Printable(aRecording.strPath) + " is damaged: " + itFirst->strMessage +
         (aFindings.qwErrors > 1 ? ", and more" : "") + " (cachefile doctor shows everything)");
    return Exit_Damage;
}
