#include "tools/cachefile/EntrySearch.h"

#include <algorithm>
#include <limits>

#include "platform/CmResult.h"

namespace {

/// Places in a row without an entry, 2 MiB. Damage of an index is usually a few sectors or pages.
/// A longer search would read the data of streams, which can look like entries.
constexpr std::uint64_t c_qwMaxUnsuccessful = 65536;
constexpr std::uint64_t c_qwNoLimit = std::numeric_limits<std::uint64_t>::max();

std::uint64_t NotedEnd(const tagMRFD& aEntry) {
    return std::uint64_t{aEntry.dwDataOffset} + aEntry.dwStreamSize;
}

bool Contains(const std::vector<std::uint64_t>& vecSorted, std::uint64_t qwValue) {
    return std::binary_search(vecSorted.begin(), vecSorted.end(), qwValue);
}

/// Bytes that look like an entry which the writer of an index has put at dwOffset. The data of an
/// entry comes after the entry.
bool LooksLikeEntry(const tagMRFD& aEntry, CmUint32 dwOffset) {
    const CmUint32 dwNext = dwOffset + c_dwEntrySize;
    return aEntry.dwDataOffset >= dwNext &&
           (aEntry.dwNextOffset == dwNext ||
            (aEntry.wReserved2 == 0 && aEntry.dwReserved12 == 0 && aEntry.dwReserved28 == 0));
}

class CEntrySearch {
 public:
    explicit CEntrySearch(CContainerIndex& aIndex) : m_index(aIndex) {}

    tagFoundEntries Run() {
        TakeFollowed();
        Search(m_index.GetEndOfWalk() == CContainerIndex::Walk_Complete ? FirstData()
                                                                        : c_qwNoLimit);
        // The entries that were found show better where the data begins. Those that were found
        // after that place are data that only looks like entries.
        const std::uint64_t qwFirstData = FirstData();
        Remove([&](const tagFoundEntry& a) { return a.bSearched && a.dwOffset >= qwFirstData; });
        m_found.nStray += RemoveStray(qwFirstData);
        if (HasSearched())
            std::sort(Entries().begin(), Entries().end(),
                      [](const auto& a, const auto& b) { return a.dwOffset < b.dwOffset; });
        return std::move(m_found);
    }

 private:
    std::vector<tagFoundEntry>& Entries() { return m_found.vecEntries; }
    void Add(CmUint32 dwOffset, const tagMRFD& aEntry, bool bSearched);
    void TakeFollowed();
    bool IsStrayEnd(const tagFoundEntry& aFound) const;
    std::uint64_t FirstData();
    void Search(std::uint64_t qwEnd);
    bool IsFollowed(std::uint64_t qwOffset) const { return Contains(m_vecFollowed, qwOffset); }
    bool HasSearched() const {
        return std::any_of(m_found.vecEntries.begin(), m_found.vecEntries.end(),
                           [](const tagFoundEntry& a) { return a.bSearched; });
    }
    std::size_t RemoveStray(std::uint64_t qwFirstData);
    template <class Which>
    std::size_t Remove(Which aWhich);

    CContainerIndex& m_index;
    tagFoundEntries m_found;
    std::vector<std::uint64_t> m_vecFollowed;  // the offsets of the followed entries, sorted
};

void CEntrySearch::Add(CmUint32 dwOffset, const tagMRFD& aEntry, bool bSearched) {
    tagFoundEntry aFound{dwOffset, aEntry, {}, false, bSearched};
    aFound.bKnown = TagToFileDescriber(aEntry, aFound.aDescriber) == CACHE_OK;
    const bool bWanted = !bSearched || (aFound.bKnown && LooksLikeEntry(aEntry, dwOffset));
    if (bWanted) Entries().push_back(aFound);
}

void CEntrySearch::TakeFollowed() {
    for (std::size_t i = 0; i < m_index.GetEntryCount(); ++i) {
        const tagIndexEntry& aEntry = m_index.GetEntry(i);
        m_vecFollowed.push_back(aEntry.dwOffset);
        if (aEntry.dwOffset >= c_dwFileHeaderSize)  // a damaged chain may lead into the header
            Add(aEntry.dwOffset, aEntry.aEntry, false);
        else
            ++m_found.nStray;
    }
    while (!Entries().empty() && IsStrayEnd(Entries().back())) {
        Entries().pop_back();
        ++m_found.nStray;
    }
    std::sort(m_vecFollowed.begin(), m_vecFollowed.end());
}

/// Whether the last followed entry is data: the index leads from there to nowhere, or its own data
/// is not in the file.
bool CEntrySearch::IsStrayEnd(const tagFoundEntry& aFound) const {
    const bool bNoData = aFound.aEntry.dwDataOffset > m_index.GetFileSize();
    const bool bNowhere =
        m_index.GetEndOfWalk() != CContainerIndex::Walk_Complete && !aFound.bKnown;
    return (bNoData || bNowhere) && !LooksLikeEntry(aFound.aEntry, aFound.dwOffset);
}

/// The first byte of data according to the entries that are found so far: the data of a stream
/// whose noted length ends exactly, or data right after the last of consecutive entries.
std::uint64_t CEntrySearch::FirstData() {
    const CNeighbours aNeighbours(Entries(), m_index);
    std::vector<std::uint64_t> vecPlaces, vecCredible;
    for (const tagFoundEntry& a : Entries()) {
        vecPlaces.push_back(a.dwOffset);
        if (a.bKnown || LooksLikeEntry(a.aEntry, a.dwOffset)) vecCredible.push_back(a.dwOffset);
    }
    std::sort(vecPlaces.begin(), vecPlaces.end());
    std::sort(vecCredible.begin(), vecCredible.end());
    std::uint64_t qwFirst = c_qwNoLimit;
    for (const tagFoundEntry& a : Entries()) {
        const std::uint64_t qwData = a.aEntry.dwDataOffset;
        if (qwData <= a.dwOffset) continue;
        const bool bAdjacent =
            Contains(vecPlaces, qwData - c_dwEntrySize) && !Contains(vecCredible, qwData);
        if (bAdjacent || aNeighbours.EndsExactly(a)) qwFirst = std::min(qwFirst, qwData);
    }
    return qwFirst;
}

void CEntrySearch::Search(std::uint64_t qwEnd) {
    std::uint64_t qwAt = c_dwFileHeaderSize, qwLast = qwAt;
    unsigned char aBlock[2048 * c_dwEntrySize];  // 64 KiB, so 2 MiB take 32 reads
    while (qwAt < qwEnd && qwAt - qwLast < c_qwMaxUnsuccessful * c_dwEntrySize) {
        CmUint32 dwRead = sizeof aBlock;
        if (m_index.ReadData(qwAt, aBlock, dwRead) != CACHE_OK || dwRead < c_dwEntrySize) return;
        for (CmUint32 i = 0; i + c_dwEntrySize <= dwRead && qwAt < qwEnd; i += c_dwEntrySize) {
            const std::size_t nBefore = Entries().size();
            tagMRFD aEntry{};
            if (!IsFollowed(qwAt) && BuildQXFEntry(aBlock + i, aEntry) == CACHE_OK)
                Add(static_cast<CmUint32>(qwAt), aEntry, true);
            if (Entries().size() > nBefore || IsFollowed(qwAt)) qwLast = qwAt;
            if (Entries().size() > nBefore && Entries().size() >= c_dwMaxKnownEntries) return;
            qwAt += c_dwEntrySize;
        }
    }
}

/// A damaged chain or count leads the walk into the data of the streams, which may look like
/// entries.
std::size_t CEntrySearch::RemoveStray(std::uint64_t qwFirstData) {
    const CNeighbours aNeighbours(Entries(), m_index);
    std::vector<std::pair<std::uint64_t, std::uint64_t>> vecData;  // sorted; ends ascend too
    for (const tagFoundEntry& a : Entries())
        if (aNeighbours.EndsExactly(a))
            vecData.push_back({a.aEntry.dwDataOffset, NotedEnd(a.aEntry)});
    std::sort(vecData.begin(), vecData.end());
    // Streams may overlap. With the largest end so far, one lookup shows whether any covers a
    // place.
    for (std::size_t i = 1; i < vecData.size(); ++i)
        vecData[i].second = std::max(vecData[i].second, vecData[i - 1].second);
    const bool bPacked = m_index.GetFileHeader().dwIndexType == Index_Packed;
    const bool bBroken = m_index.GetEndOfWalk() != CContainerIndex::Walk_Complete || HasSearched();
    return Remove([&](const tagFoundEntry& a) {
        if (a.dwOffset < qwFirstData) return false;
        if (bPacked) return true;  // all entries of a packed index come before the data
        if (aNeighbours.EndsExactly(a)) return false;
        if (bBroken && !(a.bKnown && LooksLikeEntry(a.aEntry, a.dwOffset))) return true;
        const auto itAfter = std::upper_bound(vecData.begin(), vecData.end(),
                                              std::pair(std::uint64_t{a.dwOffset}, c_qwNoLimit));
        return itAfter != vecData.begin() && std::prev(itAfter)->second > a.dwOffset;
    });
}

template <class Which>
std::size_t CEntrySearch::Remove(Which aWhich) {
    const auto itEnd = std::remove_if(Entries().begin(), Entries().end(), aWhich);
    const auto nRemoved = static_cast<std::size_t>(Entries().end() - itEnd);
    Entries().erase(itEnd, Entries().end());
    return nRemoved;
}

}  // namespace

CNeighbours::CNeighbours(const std::vector<tagFoundEntry>& vecEntries,
                         const CContainerIndex& aIndex)
    : m_vecStarts{aIndex.GetFileHeader().dwFileSize, aIndex.GetFileSize()} {
    for (const tagFoundEntry& a : vecEntries) {
        m_vecStarts.push_back(a.aEntry.dwDataOffset);
        if (a.aEntry.dwStreamSize != 0) m_vecEnds.push_back(NotedEnd(a.aEntry));
    }
    std::sort(m_vecStarts.begin(), m_vecStarts.end());
    std::sort(m_vecEnds.begin(), m_vecEnds.end());
}

bool CNeighbours::EndsExactly(const tagFoundEntry& aFound) const {
    return aFound.aEntry.dwStreamSize != 0 && Contains(m_vecStarts, NotedEnd(aFound.aEntry));
}

bool CNeighbours::StartsExactly(const tagFoundEntry& aFound) const {
    return Contains(m_vecEnds, aFound.aEntry.dwDataOffset);
}

tagFoundEntries FindEntries(CContainerIndex& aIndex) { return CEntrySearch(aIndex).Run(); }
