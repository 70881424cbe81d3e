#include "tools/cachefile/ExamineBytes.h"

#include <algorithm>

#include "tools/cachefile/Output.h"

namespace {

class CByteExaminer {
 public:
    CByteExaminer(const tagRecording& aRecording, const Places& vecEntries, CFindingList& aFindings)
        : m_recording(aRecording),
          m_index(*aRecording.pIndex),
          m_qwDeclared(m_index.GetFileHeader().dwFileSize),
          m_vecEntries(vecEntries),
          m_findings(aFindings) {}

    void Run() {
        for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i)
            m_vecStarts.push_back(
                {m_index.GetEntry(i).aEntry.dwDataOffset, static_cast<CmUint32>(i)});
        SortPlaces(m_vecStarts);
        ExamineStarts();
        ExamineLengths();
        if (m_index.GetEndOfWalk() == CContainerIndex::Walk_Complete) ExamineGaps();
    }

 private:
    void ExamineStarts();
    bool IsInEntry(CmUint32 dwOffset) const;
    void ExamineLengths();
    void ExamineLength(std::size_t nIndex, CmUint32 dwExtent);
    void ExamineGaps();
    CmUint32 ExtentOf(std::size_t nIndex) const;
    std::string Describe(std::size_t nIndex) const { return DescribeEntry(m_recording, nIndex); }

    const tagRecording& m_recording;
    const CContainerIndex& m_index;
    const std::uint64_t m_qwDeclared;
    const Places& m_vecEntries;
    Places m_vecStarts;  // where data begins, sorted
    CFindingList& m_findings;
};

/// Looks for streams that begin in the header, in an entry, or where another one begins.
void CByteExaminer::ExamineStarts() {
    for (std::size_t i = 0; i < m_vecStarts.size(); ++i) {
        const CmUint32 dwStart = m_vecStarts[i].first;
        const std::size_t nIndex = m_vecStarts[i].second;
        if (!m_recording.vecStreams[nIndex].bKnown) continue;
        const bool bInEntry = IsInEntry(dwStart);
        if (bInEntry || dwStart < c_dwFileHeaderSize)
            m_findings.Add(Finding::Overlap, dwStart, [&] {
                return Describe(nIndex) + " has its data inside the " +
                       (bInEntry ? "index" : "header");
            });
        if (i > 0 && m_vecStarts[i - 1].first == dwStart &&
            dwStart < std::min(m_qwDeclared, m_recording.qwSize))
            m_findings.Add(Finding::Overlap, dwStart, [&] {
                return Describe(nIndex) + " starts at the same byte as " +
                       Describe(m_vecStarts[i - 1].second);
            });
    }
}

bool CByteExaminer::IsInEntry(CmUint32 dwOffset) const {
    const auto itAfter = std::upper_bound(m_vecEntries.begin(), m_vecEntries.end(),
                                          std::pair(dwOffset, CmUint32{0xFFFFFFFF}));
    return itAfter != m_vecEntries.begin() && dwOffset - std::prev(itAfter)->first < c_dwEntrySize;
}

CmUint32 CByteExaminer::ExtentOf(std::size_t nIndex) const {
    tagStreamExtent aExtent{};
    m_index.GetStreamExtent(nIndex, aExtent);  // it succeeded when the recording was loaded
    return aExtent.dwExtent;
}

/// Compares the noted lengths with the places where the streams end. If no noted length fits, the
/// writer has probably used these words for something else, and only that is reported.
void CByteExaminer::ExamineLengths() {
    std::uint64_t qwNotes = 0, qwFitting = 0;
    const auto aForEachNote = [&](auto aOnNote) {
        for (std::size_t i = 0; i < m_recording.vecStreams.size(); ++i) {
            const CmUint32 dwNoted = m_index.GetEntry(i).aEntry.dwStreamSize;
            const CmUint32 dwExtent = ExtentOf(i);
            if (dwNoted != 0 || dwExtent == 0) aOnNote(i, dwNoted, dwExtent);
        }
    };
    aForEachNote([&](std::size_t, CmUint32 dwNoted, CmUint32 dwExtent) {
        ++qwNotes;
        if (dwNoted <= dwExtent) ++qwFitting;
    });
    if (qwNotes > 0 && qwFitting == 0)
        m_findings.Add(Finding::NotedLengths, c_dwFileHeaderSize, [&] {
            return qwNotes == 1 ? std::string("the only noted length does not fit")
                                : "none of the " + Grouped(qwNotes) + " noted lengths fits";
        });
    else
        aForEachNote([&](std::size_t i, CmUint32, CmUint32 dwExtent) {
            const tagStream& aStream = m_recording.vecStreams[i];
            if (aStream.bKnown && aStream.qwOffset <= m_qwDeclared) ExamineLength(i, dwExtent);
        });
}

void CByteExaminer::ExamineLength(std::size_t nIndex, CmUint32 dwExtent) {
    const CmUint32 dwNoted = m_index.GetEntry(nIndex).aEntry.dwStreamSize;
    const std::uint64_t qwStart = m_recording.vecStreams[nIndex].qwOffset;
    const std::uint64_t qwEnd = qwStart + dwExtent;
    const auto aText = [&](const std::string& strWhat) {
        return Describe(nIndex) + " has a noted length of " + ByteCount(dwNoted) + ", but " +
               strWhat + " after " + Grouped(dwExtent);
    };
    if (dwNoted < dwExtent)
        m_findings.Add(Finding::LongerThanNoted, qwStart + dwNoted, [&] {
            return Describe(nIndex) + " has a noted length of " + ByteCount(dwNoted) +
                   ", but nothing else begins before " + Grouped(dwExtent);
        });
    else if (dwNoted > dwExtent && qwEnd < m_qwDeclared)
        m_findings.Add(Finding::Overlap, qwEnd, [&] { return aText("something else begins"); });
    else if (dwNoted > dwExtent)
        m_findings.Add(Finding::ShorterThanNoted, qwEnd,
                       [&] { return aText("the container ends"); });
}

/// Looks for unused bytes. Those after the noted end of a stream are reported by ExamineLength.
void CByteExaminer::ExamineGaps() {
    std::uint64_t qwCovered = c_dwFileHeaderSize;
    const auto aMarkUsed = [&](std::uint64_t qwBegin, std::uint64_t qwEnd) {
        const std::uint64_t qwGapEnd = std::min(qwBegin, m_qwDeclared);
        if (qwGapEnd > qwCovered)
            m_findings.Add(Finding::Gap, qwCovered,
                           [&] { return ByteCount(qwGapEnd - qwCovered) + " are not used"; });
        qwCovered = std::max(qwCovered, qwEnd);
    };
    auto itEntry = m_vecEntries.begin();
    for (const auto& [dwStart, dwIndex] : m_vecStarts) {
        for (; itEntry != m_vecEntries.end() && itEntry->first <= dwStart; ++itEntry)
            aMarkUsed(itEntry->first, std::uint64_t{itEntry->first} + c_dwEntrySize);
        aMarkUsed(dwStart, std::uint64_t{dwStart} + ExtentOf(dwIndex));
    }
    for (; itEntry != m_vecEntries.end(); ++itEntry)
        aMarkUsed(itEntry->first, std::uint64_t{itEntry->first} + c_dwEntrySize);
    aMarkUsed(m_qwDeclared, m_qwDeclared);
}

}  // namespace

/// Most indexes are sorted already, and to check that is faster than to sort.
void SortPlaces(Places& vecPlaces) {
    if (!std::is_sorted(vecPlaces.begin(), vecPlaces.end()))
        std::sort(vecPlaces.begin(), vecPlaces.end());
}

std::string DescribeEntry(const tagRecording& aRecording, std::size_t nIndex) {
    const tagStream& aStream = aRecording.vecStreams[nIndex];
    return "entry " + std::to_string(nIndex + 1) +
           (aStream.bKnown ? " (" + aStream.Name() + ")" : "");
}

std::string ByteCount(std::uint64_t qwCount) {
    return Grouped(qwCount) + (qwCount == 1 ? " byte" : " bytes");
}

void ExamineBytes(const tagRecording& aRecording, const Places& vecEntries,
                  CFindingList& aFindings) {
    CByteExaminer(aRecording, vecEntries, aFindings).Run();
}
