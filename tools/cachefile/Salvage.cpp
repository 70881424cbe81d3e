#include "tools/cachefile/Salvage.h"

#include <algorithm>
#include <limits>
#include <tuple>

#include "tools/cachefile/Output.h"

namespace {

using Offsets = std::vector<std::uint64_t>;

/// The first of the sorted offsets that is at least qwFrom, or qwElse.
std::uint64_t FirstFrom(const Offsets& vecSorted, std::uint64_t qwFrom, std::uint64_t qwElse) {
    const auto it = std::lower_bound(vecSorted.begin(), vecSorted.end(), qwFrom);
    return it == vecSorted.end() ? qwElse : std::min(*it, qwElse);
}

class CSalvager {
 public:
    explicit CSalvager(CContainerIndex& aIndex)
        : m_index(aIndex),
          m_qwDeclared(aIndex.GetFileHeader().dwFileSize),
          m_qwSize(aIndex.GetFileSize()),
          m_found(FindEntries(aIndex)),
          m_neighbours(m_found.vecEntries, aIndex) {}

    tagSalvage Run() {
        CollectBounds();
        m_bNotes = AreNotesUsed();
        for (std::size_t i = 0; i < m_found.vecEntries.size(); ++i)
            if (m_found.vecEntries[i].bKnown) AddStream(i);
        FindOverlaps();
        FindUnused();
        FindLosses();
        // If several streams have one name, the caller prefers the first of them.
        std::stable_sort(m_salvage.vecStreams.begin(), m_salvage.vecStreams.end(),
                         [](const tagSalvagedStream& a, const tagSalvagedStream& b) {
                             return std::tie(a.nDoubt, a.bSearched) <
                                    std::tie(b.nDoubt, b.bSearched);
                         });
        return std::move(m_salvage);
    }

 private:
    void CollectBounds();
    bool AreNotesUsed() const;
    std::uint64_t NextBound(std::size_t nIndex) const;
    void AddStream(std::size_t nIndex);
    std::uint64_t Length(std::size_t nIndex, std::vector<std::string>& vecFaults) const;
    int Doubt(const tagFoundEntry& aFound) const;
    bool IsInEntry(std::uint64_t qwOffset) const;
    void FindOverlaps();
    void FindLosses();
    void FindUnused();

    CContainerIndex& m_index;
    const std::uint64_t m_qwDeclared;
    const std::uint64_t m_qwSize;
    const tagFoundEntries m_found;
    const CNeighbours m_neighbours;
    bool m_bNotes = false;
    Offsets m_vecEntries;  // where entries begin, sorted
    std::vector<std::pair<std::uint64_t, std::size_t>>
        m_vecStarts;  // of data, with the entry; sorted
    tagSalvage m_salvage;
};

void CSalvager::CollectBounds() {
    for (std::size_t i = 0; i < m_found.vecEntries.size(); ++i) {
        m_vecEntries.push_back(m_found.vecEntries[i].dwOffset);
        m_vecStarts.push_back({m_found.vecEntries[i].aEntry.dwDataOffset, i});
    }
    std::sort(m_vecEntries.begin(), m_vecEntries.end());
    std::sort(m_vecStarts.begin(), m_vecStarts.end());
}

/// The end of a stream without a note. Of streams that begin at the same place, the last has the
/// bytes.
std::uint64_t CSalvager::NextBound(std::size_t nIndex) const {
    const std::uint64_t qwStart = m_found.vecEntries[nIndex].aEntry.dwDataOffset;
    const auto itNext =
        std::upper_bound(m_vecStarts.begin(), m_vecStarts.end(), std::pair(qwStart, nIndex));
    // A stream past the declared end shows that this number, too, may be damaged.
    std::uint64_t qwEnd = qwStart <= m_qwDeclared ? m_qwDeclared : std::max(qwStart, m_qwSize);
    if (itNext != m_vecStarts.end()) qwEnd = std::min(qwEnd, itNext->first);
    return FirstFrom(m_vecEntries, qwStart, qwEnd);
}

/// Not every writer notes lengths in this word. A length that leads exactly to another part is no
/// coincidence. Without one, the words count as lengths if most of them are possible.
bool CSalvager::AreNotesUsed() const {
    std::size_t nNotes = 0, nFitting = 0;
    for (std::size_t i = 0; i < m_found.vecEntries.size(); ++i) {
        const tagFoundEntry& aFound = m_found.vecEntries[i];
        if (m_neighbours.EndsExactly(aFound)) return true;
        if (aFound.aEntry.dwStreamSize == 0) continue;
        ++nNotes;
        const std::uint64_t qwBytes = NextBound(i) - aFound.aEntry.dwDataOffset;
        if (aFound.aEntry.dwStreamSize <= qwBytes) ++nFitting;
    }
    return nNotes > 0 && 2 * nFitting >= nNotes;
}

/// Prefers the noted length to the next bound, because a damaged offset of another entry may have
/// moved that bound.
std::uint64_t CSalvager::Length(std::size_t nIndex, std::vector<std::string>& vecFaults) const {
    const tagMRFD& aEntry = m_found.vecEntries[nIndex].aEntry;
    const std::uint64_t qwEnd = std::max(m_qwDeclared, m_qwSize);
    const std::uint64_t qwBytes = NextBound(nIndex) - aEntry.dwDataOffset;
    if (!m_bNotes) return qwBytes;
    // A writer puts empty streams at the end. Elsewhere 0 means that no length was noted.
    if (aEntry.dwStreamSize == 0 && aEntry.dwDataOffset >= m_qwSize) return 0;
    const bool bFits = aEntry.dwDataOffset + std::uint64_t{aEntry.dwStreamSize} <= qwEnd;
    if (aEntry.dwStreamSize != 0 && (bFits || qwBytes == 0)) return aEntry.dwStreamSize;
    if (qwBytes > 0) vecFaults.push_back("its noted length does not fit");
    return qwBytes;
}

/// Damage rarely changes an entry so that it fits exactly between its neighbours.
int CSalvager::Doubt(const tagFoundEntry& aFound) const {
    return 2 - m_neighbours.EndsExactly(aFound) - m_neighbours.StartsExactly(aFound);
}

bool CSalvager::IsInEntry(std::uint64_t qwOffset) const {
    const auto itAfter = std::upper_bound(m_vecEntries.begin(), m_vecEntries.end(), qwOffset);
    return qwOffset < c_dwFileHeaderSize ||
           (itAfter != m_vecEntries.begin() && qwOffset - *std::prev(itAfter) < c_dwEntrySize);
}

void CSalvager::AddStream(std::size_t nIndex) {
    const tagFoundEntry& aFound = m_found.vecEntries[nIndex];
    tagSalvagedStream aStream{
        aFound.aDescriber, aFound.aEntry.dwDataOffset, 0, 0, aFound.bSearched, Doubt(aFound), {}};
    aStream.qwLength = Length(nIndex, aStream.vecFaults);
    const std::uint64_t qwThere = m_qwSize > aStream.qwOffset ? m_qwSize - aStream.qwOffset : 0;
    aStream.qwPresent = std::min(aStream.qwLength, qwThere);
    if (IsInEntry(aStream.qwOffset)) aStream.vecFaults.push_back("it begins inside the index");
    const bool bEmpty = m_bNotes && aFound.aEntry.dwStreamSize == 0;
    if (aStream.qwOffset > std::max(m_qwDeclared, m_qwSize) && !bEmpty)
        aStream.vecFaults.push_back("it begins past the end of the container");
    m_salvage.vecStreams.push_back(std::move(aStream));
}

/// If streams share bytes, at least one of them has a damaged entry. That is not the one which both
/// neighbours confirm.
void CSalvager::FindOverlaps() {
    std::vector<tagSalvagedStream*> vecOrder;
    for (tagSalvagedStream& a : m_salvage.vecStreams)
        if (a.qwPresent > 0) vecOrder.push_back(&a);
    std::stable_sort(vecOrder.begin(), vecOrder.end(),
                     [](const auto* a, const auto* b) { return a->qwOffset < b->qwOffset; });
    std::uint64_t qwCovered = 0;
    for (std::size_t i = 0; i < vecOrder.size(); ++i) {
        tagSalvagedStream& a = *vecOrder[i];
        const std::uint64_t qwEnd = a.qwOffset + a.qwPresent;
        const bool bNext = i + 1 < vecOrder.size() && vecOrder[i + 1]->qwOffset < qwEnd;
        const bool bIndex = FirstFrom(m_vecEntries, a.qwOffset, qwEnd) < qwEnd;
        if (a.nDoubt > 0 && (bNext || bIndex || a.qwOffset < qwCovered))
            a.vecFaults.push_back("other parts of the container use some of its bytes");
        qwCovered = std::max(qwCovered, qwEnd);
    }
}

/// Finds the bytes that are neither header nor index nor data of a stream.
void CSalvager::FindUnused() {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> vecUsed{{0, c_dwFileHeaderSize}};
    for (const std::uint64_t qwEntry : m_vecEntries)
        vecUsed.push_back({qwEntry, qwEntry + c_dwEntrySize});
    for (const tagSalvagedStream& a : m_salvage.vecStreams)
        vecUsed.push_back({a.qwOffset, a.qwOffset + a.qwPresent});
    vecUsed.push_back({m_qwSize, m_qwSize});  // so that the last unused bytes are found too
    std::sort(vecUsed.begin(), vecUsed.end());
    std::uint64_t qwCovered = 0;
    for (const auto& [qwBegin, qwEnd] : vecUsed) {
        const std::uint64_t qwTo = std::min(qwBegin, m_qwSize);
        if (qwTo > qwCovered) m_salvage.vecUnused.push_back({qwCovered, qwTo});
        qwCovered = std::max(qwCovered, qwEnd);
    }
}

void CSalvager::FindLosses() {
    const tagQXFFileHeader& aHeader = m_index.GetFileHeader();
    const std::size_t nFound = m_found.vecEntries.size();
    const std::size_t nKnown = m_salvage.vecStreams.size();
    auto& vecLosses = m_salvage.vecLosses;
    if (aHeader.dwEntryCount > nFound)
        vecLosses.push_back("the header counts " + Grouped(aHeader.dwEntryCount) +
                            " entries, but " + Grouped(nFound) + " were found");
    if (nKnown < nFound)
        vecLosses.push_back("entries with an unknown tag: " + Grouped(nFound - nKnown));
    if (m_found.nStray > 0)
        vecLosses.push_back("entries that are data, where the index leads: " +
                            Grouped(m_found.nStray));
    if (m_qwDeclared > m_qwSize)
        vecLosses.push_back("the header says " + Grouped(m_qwDeclared) + " bytes, the file has " +
                            Grouped(m_qwSize));
    std::uint64_t qwUnused = 0;
    for (const auto& [qwBegin, qwEnd] : m_salvage.vecUnused) qwUnused += qwEnd - qwBegin;
    if (qwUnused > 0)
        vecLosses.push_back(Grouped(qwUnused) + " bytes of the file belong to no stream");
}

}  // namespace

tagSalvage SalvageStreams(CContainerIndex& aIndex) { return CSalvager(aIndex).Run(); }
