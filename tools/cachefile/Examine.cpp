#include "tools/cachefile/Examine.h"

#include <algorithm>

#include "tools/cachefile/ExamineBytes.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"

namespace {

class CExaminer {
 public:
    CExaminer(const tagRecording& aRecording, std::uint64_t qwMax)
        : m_recording(aRecording),
          m_index(*aRecording.pIndex),
          m_header(m_index.GetFileHeader()),
          m_qwDeclared(m_header.dwFileSize),
          m_findings(qwMax) {}

    /// If bWarnings is false, steps that find only warnings are left out.
    tagFindings Run(bool bWarnings) {
        ExamineHeader();
        if (m_index.GetEndOfWalk() != CContainerIndex::Walk_None) {
            ExamineSize();
            if (bWarnings) ExamineEntries();
            ExamineEndOfWalk();
            for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) ExamineStream(i);
            if (bWarnings) ExamineBytes(m_recording, m_vecEntries, m_findings);
        }
        return m_findings.Take();
    }

 private:
    void ExamineHeader();
    void ExamineSize();
    void ExamineEntries();
    void ExamineEndOfWalk();
    void ExamineStream(std::size_t nIndex);
    void ExamineData(std::size_t nIndex);
    std::string Describe(std::size_t nIndex) const { return DescribeEntry(m_recording, nIndex); }

    const tagRecording& m_recording;
    const CContainerIndex& m_index;
    const tagQXFFileHeader& m_header;
    const std::uint64_t m_qwDeclared;
    Places m_vecEntries;  // where entries begin, sorted
    CFindingList m_findings;
};

/// A reader stops at the first bad word; this function reports all of them.
void CExaminer::ExamineHeader() {
    if (m_recording.qwSize < c_dwFileHeaderSize) {
        m_findings.Add(Finding::HeaderCutOff, 0, [&] {
            return "the header has " + ByteCount(m_recording.qwSize) + " of " +
                   std::to_string(c_dwFileHeaderSize);
        });
        return;
    }
    if (m_header.dwFileSize == 0)
        m_findings.Add(Finding::HeaderSizeZero, 8,
                       [&] { return std::string("the size in the header is 0"); });
    if (m_header.dwMustBeZero != 0)
        m_findings.Add(Finding::HeaderWordNotZero, 12, [&] {
            return "the word that must be 0 is " + std::to_string(m_header.dwMustBeZero);
        });
    if (m_header.dwEntryCount == 0)
        m_findings.Add(Finding::HeaderNoEntries, 16,
                       [&] { return std::string("the number of entries in the header is 0"); });
    if (m_header.dwIndexType != Index_Packed && m_header.dwIndexType != Index_Chained)
        m_findings.Add(Finding::HeaderIndexType, 20, [&] {
            return "the index type is " + std::to_string(m_header.dwIndexType) +
                   ", which is neither 0 nor 1";
        });
}

void CExaminer::ExamineSize() {
    const std::uint64_t qwSize = m_recording.qwSize;
    const std::string strSizes =
        "the header says " + ByteCount(m_qwDeclared) + ", the file has " + Grouped(qwSize);
    if (qwSize < m_qwDeclared)
        m_findings.Add(Finding::FileTooShort, qwSize, [&] { return strSizes; });
    if (qwSize > m_qwDeclared)
        m_findings.Add(Finding::FileTooLong, m_qwDeclared, [&] { return strSizes; });
}

/// The entries of a chain may be anywhere in the file and may overlap.
void CExaminer::ExamineEntries() {
    for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
        const CmUint32 dwOffset = m_index.GetEntry(i).dwOffset;
        m_vecEntries.push_back({dwOffset, static_cast<CmUint32>(i)});
        if (dwOffset < c_dwFileHeaderSize)
            m_findings.Add(Finding::Overlap, dwOffset,
                           [&] { return Describe(i) + " overlaps the header"; });
        if (std::uint64_t{dwOffset} + c_dwEntrySize > m_qwDeclared)
            m_findings.Add(Finding::EntryPastSize, dwOffset, [&] {
                return Describe(i) + " ends after the " + ByteCount(m_qwDeclared) +
                       " that the header gives";
            });
    }
    SortPlaces(m_vecEntries);
    for (std::size_t i = 1; i < m_vecEntries.size(); ++i)
        if (m_vecEntries[i].first - m_vecEntries[i - 1].first < c_dwEntrySize)
            m_findings.Add(Finding::Overlap, m_vecEntries[i].first, [&] {
                return Describe(m_vecEntries[i].second) + " overlaps " +
                       Describe(m_vecEntries[i - 1].second);
            });
}

void CExaminer::ExamineEndOfWalk() {
    const std::uint64_t qwEnd = m_index.GetEndOffset();
    const std::size_t nRead = m_index.GetEntryCount();
    const std::string strNext =
        "entry " + std::to_string(nRead + 1) + " of " + std::to_string(m_header.dwEntryCount);
    switch (m_index.GetEndOfWalk()) {
        case CContainerIndex::Walk_CutOff:
            m_findings.Add(Finding::EntryPastEnd, qwEnd, [&] {
                return strNext + (m_recording.lIndexResult == CACHE_ERR_BAD_CONTAINER
                                      ? " is not completely in the file"
                                      : ResultText(" cannot be read", m_recording.lIndexResult));
            });
            break;
        case CContainerIndex::Walk_TooMany:
            m_findings.Add(Finding::TooManyEntries, qwEnd,
                           [&] { return strNext + " is more than a reader keeps"; });
            break;
        case CContainerIndex::Walk_Circle:
            m_findings.Add(Finding::ChainCircle, m_index.GetEntry(nRead - 1).dwOffset, [&] {
                return Describe(nRead - 1) + " points back to the entry at " +
                       std::to_string(qwEnd) + ": " + std::to_string(nRead) + " of " +
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
        m_findings.Add(Finding::UnknownTag, aStream.qwEntryOffset, [&] {
            return Describe(nIndex) + " has the unknown tag " + std::to_string(*aStream.wTag);
        });
        return;
    }
    if (aStream.nHiddenBy != 0)
        m_findings.Add(Finding::EntryHidden, aStream.qwEntryOffset, [&] {
            return Describe(nIndex) + " cannot be reached: entry " +
                   std::to_string(aStream.nHiddenBy) + " names the same stream";
        });
    ExamineData(nIndex);
}

void CExaminer::ExamineData(std::size_t nIndex) {
    const tagStream& aStream = m_recording.vecStreams[nIndex];
    const std::uint64_t qwStart = aStream.qwOffset;
    const std::uint64_t qwSize = m_recording.qwSize;
    const bool bConf = aStream.wTag == c_wConfTag;
    if (bConf && qwStart + c_dwEntryFileHeaderSize > qwSize)
        m_findings.Add(Finding::ConfHeaderCutOff, qwStart, [&] {
            return Describe(nIndex) + ": the file has " +
                   std::to_string(qwSize > qwStart ? qwSize - qwStart : 0) + " of the " +
                   std::to_string(c_dwEntryFileHeaderSize) +
                   " bytes of its header; a reader stops here";
        });
    if (qwStart > m_qwDeclared || qwStart > qwSize)
        m_findings.Add(Finding::DataPastEnd, aStream.qwEntryOffset, [&] {
            return Describe(nIndex) + " has its data at " + std::to_string(qwStart) +
                   ", past the end " + (qwStart > qwSize ? "of the file" : "given in the header");
        });
    else if (aStream.qwPresent < aStream.qwExtent)
        m_findings.Add(Finding::DataCutOff, qwStart, [&] {
            return Describe(nIndex) + " lacks " + ByteCount(aStream.qwExtent - aStream.qwPresent) +
                   " of " + Grouped(aStream.qwExtent);
        });
}

}  // namespace

tagFindings Examine(const tagRecording& aRecording, std::uint64_t qwMax) {
    return aRecording.IsContainer() ? CExaminer(aRecording, qwMax).Run(true) : tagFindings{};
}

int ReportDamage(const tagRecording& aRecording) {
    if (!aRecording.IsContainer()) return Exit_Done;
    const tagFindings aFindings = CExaminer(aRecording, 1).Run(false);
    if (aFindings.qwErrors == 0) return Exit_Done;
    const auto itFirst = std::find_if(
        aFindings.vecFindings.begin(), aFindings.vecFindings.end(),
        [](const tagFinding& aFinding) { return aFinding.aSeverity == Severity::Error; });
    Warn(Printable(aRecording.strPath) + " is damaged: " + itFirst->strMessage +
         (aFindings.qwErrors > 1 ? ", and more" : "") + " (see `cachefile doctor`)");
    return Exit_Damage;
}
