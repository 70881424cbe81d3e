#include "tools/cachefile/Findings.h"

#include <algorithm>

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

/// Offsets with the index of the stream that they belong to.
using Places = std::vector<std::pair<std::uint64_t, std::size_t>>;

/// Most indexes are in order already.
void Sort(Places& vecPlaces) {
    if (!std::is_sorted(vecPlaces.begin(), vecPlaces.end()))
        std::sort(vecPlaces.begin(), vecPlaces.end());
}

class CExaminer {
 public:
    explicit CExaminer(const tagRecording& aRecording)
        : m_recording(aRecording),
          m_index(*aRecording.pIndex),
          m_header(m_index.GetFileHeader()),
          m_qwDeclared(m_header.dwFileSize) {}

    std::vector<tagFinding> Run() {
        ExamineHeader();
        if (m_index.GetEndOfWalk() == CContainerIndex::Walk_None) return m_vecFindings;
        ExamineSize();
        ExamineEntries();
        ExamineEndOfWalk();
        for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) ExamineStream(i);
        ExamineStarts();
        return m_vecFindings;
    }

 private:
    void Add(Finding aFinding, std::uint64_t qwOffset, std::string strMessage) {
        const tagKind& aKind = c_aKinds[static_cast<std::size_t>(aFinding)];
        m_vecFindings.push_back({aKind.aSeverity, aKind.lpCode, qwOffset, std::move(strMessage)});
    }

    void ExamineHeader();
    void ExamineSize();
    void ExamineEntries();
    void ExamineEndOfWalk();
    void ExamineStream(std::size_t nIndex);
    void ExamineData(std::size_t nIndex);
    void ExamineStarts();
    void ExamineLength(std::size_t nIndex);
    bool HoldsLengths() const;
    std::string Who(std::size_t nIndex) const;

    const tagRecording& m_recording;
    const CContainerIndex& m_index;
    const tagQXFFileHeader& m_header;
    const std::uint64_t m_qwDeclared;
    std::vector<tagFinding> m_vecFindings;
};

std::string CExaminer::Who(std::size_t nIndex) const {
    const tagStream& aStream = m_recording.vecStreams[nIndex];
    return "entry " + std::to_string(nIndex + 1) +
           (aStream.bKnown ? " (" + aStream.Name() + ")" : "");
}

/// The words are tested as a reader does, which stops at the first bad one; all are told here.
void CExaminer::ExamineHeader() {
    if (m_recording.qwSize < c_dwFileHeaderSize) {
        Add(Finding::HeaderCutOff, 0,
            "the header has " + Bytes(m_recording.qwSize) + " of " +
                std::to_string(c_dwFileHeaderSize));
        return;
    }
    if (m_header.dwFileSize == 0) Add(Finding::HeaderSizeZero, 8, "the size is given as 0");
    if (m_header.dwMustBeZero != 0)
        Add(Finding::HeaderWordNotZero, 12,
            "a word that has to be 0 is " + std::to_string(m_header.dwMustBeZero));
    if (m_header.dwEntryCount == 0)
        Add(Finding::HeaderNoEntries, 16, "the number of entries is given as 0");
    if (m_header.dwIndexType != Index_Packed && m_header.dwIndexType != Index_Chained)
        Add(Finding::HeaderIndexType, 20,
            "the index type is " + std::to_string(m_header.dwIndexType) +
                ", which is neither 0 nor 1");
}

void CExaminer::ExamineSize() {
    const std::uint64_t qwSize = m_recording.qwSize;
    const std::string strSays =
        "the header says " + Bytes(m_qwDeclared) + ", the file has " + Grouped(qwSize);
    if (qwSize < m_qwDeclared) Add(Finding::FileTooShort, qwSize, strSays);
    if (qwSize > m_qwDeclared) Add(Finding::FileTooLong, m_qwDeclared, strSays);
}

/// Entries of a chain may lie anywhere, on one another too.
void CExaminer::ExamineEntries() {
    Places vecPlaces;
    for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
        const std::uint64_t qwOffset = m_recording.vecStreams[i].qwEntryOffset;
        vecPlaces.push_back({qwOffset, i});
        if (qwOffset < c_dwFileHeaderSize)
            Add(Finding::Overlap, qwOffset, Who(i) + " lies in the header");
        if (qwOffset + c_dwEntrySize > m_qwDeclared)
            Add(Finding::EntryPastSize, qwOffset,
                Who(i) + " reaches past the " + Bytes(m_qwDeclared) + " that the header gives");
    }
    Sort(vecPlaces);
    for (std::size_t i = 1; i < vecPlaces.size(); ++i)
        if (vecPlaces[i].first < vecPlaces[i - 1].first + c_dwEntrySize)
            Add(Finding::Overlap, vecPlaces[i].first,
                Who(vecPlaces[i].second) + " lies on " + Who(vecPlaces[i - 1].second));
}

void CExaminer::ExamineEndOfWalk() {
    const std::uint64_t qwEnd = m_index.GetEndOffset();
    const std::size_t nRead = m_index.GetEntryCount();
    const std::string strNext =
        "entry " + std::to_string(nRead + 1) + " of " + std::to_string(m_header.dwEntryCount);
    switch (m_index.GetEndOfWalk()) {
        case CContainerIndex::Walk_CutOff:
            Add(Finding::EntryPastEnd, qwEnd,
                strNext + (m_recording.lIndexResult == CACHE_ERR_BAD_CONTAINER
                               ? " isn't in the file, or not wholly"
                               : ResultText(" can't be read", m_recording.lIndexResult)));
            break;
        case CContainerIndex::Walk_TooMany:
            Add(Finding::TooManyEntries, qwEnd, strNext + " is more than a reader keeps");
            break;
        case CContainerIndex::Walk_Circle:
            Add(Finding::ChainCircle, m_index.GetEntry(nRead - 1).dwOffset,
                Who(nRead - 1) + " leads back to the entry at " + std::to_string(qwEnd) + ": " +
                    std::to_string(nRead) + " of " + std::to_string(m_header.dwEntryCount) +
                    " entries can be reached");
            break;
        default:
            break;
    }
}

void CExaminer::ExamineStream(std::size_t nIndex) {
    const tagStream& aStream = m_recording.vecStreams[nIndex];
    if (!aStream.bKnown) {
        Add(Finding::UnknownTag, aStream.qwEntryOffset,
            Who(nIndex) + " has the unknown tag " + std::to_string(*aStream.wTag));
        return;
    }
    if (aStream.nHiddenBy != 0)
        Add(Finding::EntryHidden, aStream.qwEntryOffset,
            Who(nIndex) + " can't be reached: entry " + std::to_string(aStream.nHiddenBy) +
                " names the same stream");
    ExamineData(nIndex);
}

void CExaminer::ExamineData(std::size_t nIndex) {
    const tagStream& aStream = m_recording.vecStreams[nIndex];
    const std::uint64_t qwStart = aStream.qwOffset;
    const std::uint64_t qwSize = m_recording.qwSize;
    const bool bConf = aStream.wTag == c_wConfTag;
    if (bConf && qwStart + c_dwEntryFileHeaderSize > qwSize)
        Add(Finding::ConfHeaderCutOff, qwStart,
            Who(nIndex) + ": of the " + std::to_string(c_dwEntryFileHeaderSize) +
                " bytes of its header " + std::to_string(qwSize > qwStart ? qwSize - qwStart : 0) +
                " are in the file; a reader stops here");
    if (qwStart > m_qwDeclared || qwStart > qwSize)
        Add(Finding::DataPastEnd, aStream.qwEntryOffset,
            Who(nIndex) + " has its data at " + std::to_string(qwStart) + ", past the end " +
                (qwStart > qwSize ? "of the file" : "that the header gives"));
    else if (aStream.qwPresent < aStream.qwExtent)
        Add(Finding::DataCutOff, qwStart,
            Who(nIndex) + " lacks " + Bytes(aStream.qwExtent - aStream.qwPresent) + " of " +
                Grouped(aStream.qwExtent));
}

/// Whether the words in which our writer notes the lengths hold them here. Other writers may have
/// put anything there.
bool CExaminer::HoldsLengths() const {
    bool bHolds = false;
    for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
        const CmUint32 dwLength = m_index.GetEntry(i).aEntry.dwStreamSize;
        const tagStream& aStream = m_recording.vecStreams[i];
        if (aStream.qwOffset + dwLength > std::max(m_qwDeclared, m_recording.qwSize)) return false;
        if (dwLength != 0 && dwLength == aStream.qwExtent) bHolds = true;
    }
    return bHolds;
}

/// Looks for streams that begin inside of something else.
void CExaminer::ExamineStarts() {
    Places vecStarts, vecEntries;
    for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
        vecStarts.push_back({m_recording.vecStreams[i].qwOffset, i});
        vecEntries.push_back({m_recording.vecStreams[i].qwEntryOffset, i});
    }
    Sort(vecStarts);
    Sort(vecEntries);
    const bool bLengths = HoldsLengths();
    for (std::size_t i = 0; i < vecStarts.size(); ++i) {
        const auto [qwStart, nIndex] = vecStarts[i];
        const tagStream& aStream = m_recording.vecStreams[nIndex];
        if (!aStream.bKnown) continue;
        const auto itAbove = std::upper_bound(vecEntries.begin(), vecEntries.end(),
                                              std::pair(qwStart, m_recording.vecStreams.size()));
        const bool bInEntry =
            itAbove != vecEntries.begin() && qwStart < std::prev(itAbove)->first + c_dwEntrySize;
        const bool bInside = qwStart < c_dwFileHeaderSize || bInEntry;
        if (bInside)
            Add(Finding::Overlap, qwStart,
                Who(nIndex) + " has its data in the " + (bInEntry ? "index" : "header"));
        if (i > 0 && vecStarts[i - 1].first == qwStart && aStream.qwPresent > 0)
            Add(Finding::Overlap, qwStart,
                Who(nIndex) + " has the same bytes as " + Who(vecStarts[i - 1].second));
        if (bLengths && !bInside) ExamineLength(nIndex);
    }
}

void CExaminer::ExamineLength(std::size_t nIndex) {
    const tagStream& aStream = m_recording.vecStreams[nIndex];
    const CmUint32 dwLength = m_index.GetEntry(nIndex).aEntry.dwStreamSize;
    const std::uint64_t qwEnd = aStream.qwOffset + aStream.qwExtent;
    if (dwLength <= aStream.qwExtent || qwEnd == m_qwDeclared) return;
    Add(Finding::Overlap, qwEnd,
        Who(nIndex) + " is noted with " + Bytes(dwLength) + ", but something else begins after " +
            Grouped(aStream.qwExtent));
}

}  // namespace

const char* SeverityName(Severity aSeverity) {
    return aSeverity == Severity::Error ? "error" : "warning";
}

std::vector<tagFinding> Examine(const tagRecording& aRecording) {
    return aRecording.IsContainer() ? CExaminer(aRecording).Run() : std::vector<tagFinding>{};
}

int ReportDamage(const tagRecording& aRecording) {
    const std::vector<tagFinding> vecFindings = Examine(aRecording);
    const auto nErrors = std::count_if(
        vecFindings.begin(), vecFindings.end(),
        [](const tagFinding& aFinding) { return aFinding.aSeverity == Severity::Error; });
    if (nErrors == 0) return Exit_Done;
    const auto itFirst = std::find_if(
        vecFindings.begin(), vecFindings.end(),
        [](const tagFinding& aFinding) { return aFinding.aSeverity == Severity::Error; });
    Warn(Printable(aRecording.strPath) + " is damaged: " + itFirst->strMessage +
         (nErrors > 1 ? ", and more" : "") + " (cachefile doctor tells all)");
    return Exit_Damage;
}
