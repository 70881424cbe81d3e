#include "download/StreamExtents.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr std::uint64_t c_qwMaxOffset = 0xFFFFFFFF;

bool IsNote(CmUint32 dwNoted, CmUint32 dwBytes) { return dwNoted != 0 || dwBytes == 0; }

}  // namespace

void CStreamExtents::Add(CmUint32 dwEntryOffset, CmUint32 dwDataOffset, CmUint32 dwNoted) {
    m_vecData.push_back({dwDataOffset, dwNoted});
    // Consecutive entries share a bound.
    if (m_vecEntries.empty() || m_vecEntries.back() != dwEntryOffset)
        m_vecEntries.push_back(dwEntryOffset);
    if (dwEntryOffset <= c_qwMaxOffset - c_dwEntrySize)
        m_vecEntries.push_back(dwEntryOffset + c_dwEntrySize);
}

void CStreamExtents::SortBounds() {
    if (!std::is_sorted(m_vecEntries.begin(), m_vecEntries.end()))
        std::sort(m_vecEntries.begin(), m_vecEntries.end());
    m_vecOrder.resize(m_vecData.size());
    std::iota(m_vecOrder.begin(), m_vecOrder.end(), 0);
    const auto aLess = [this](CmUint32 a, CmUint32 b) {
        return m_vecData[a].dwOffset != m_vecData[b].dwOffset
                   ? m_vecData[a].dwOffset < m_vecData[b].dwOffset
                   : a < b;
    };
    if (!std::is_sorted(m_vecOrder.begin(), m_vecOrder.end(), aLess))
        std::sort(m_vecOrder.begin(), m_vecOrder.end(), aLess);
}

void CStreamExtents::Derive(std::uint64_t qwDeclared, std::uint64_t qwFileSize) {
    SortBounds();
    m_vecExtents.resize(m_vecData.size());
    auto itEntry = m_vecEntries.cbegin();
    std::size_t nTo = 0;
    for (std::size_t nFrom = 0; nFrom < m_vecOrder.size(); nFrom = nTo) {
        const CmUint32 dwOffset = m_vecData[m_vecOrder[nFrom]].dwOffset;
        const auto aOffsetOf = [this](std::size_t n) { return m_vecData[m_vecOrder[n]].dwOffset; };
        while (nTo < m_vecOrder.size() && aOffsetOf(nTo) == dwOffset) ++nTo;
        while (itEntry != m_vecEntries.cend() && *itEntry <= dwOffset) ++itEntry;
        std::uint64_t qwEnd = dwOffset <= qwDeclared ? qwDeclared : qwFileSize;
        qwEnd = std::min(qwEnd, c_qwMaxOffset);
        if (nTo < m_vecOrder.size()) qwEnd = std::min<std::uint64_t>(qwEnd, aOffsetOf(nTo));
        if (itEntry != m_vecEntries.cend()) qwEnd = std::min<std::uint64_t>(qwEnd, *itEntry);
        DeriveGroup(nFrom, nTo, qwEnd > dwOffset ? static_cast<CmUint32>(qwEnd - dwOffset) : 0);
    }
    CheckNotes();
    // Assigning {} would keep the memory.
    m_vecEntries = std::vector<CmUint32>();
    m_vecOrder = std::vector<CmUint32>();
    m_vecData = std::vector<tagData>();
}

/// The data of the entries nFrom to nTo of the order begins at the same place, dwBytes before the
/// next bound.
void CStreamExtents::DeriveGroup(std::size_t nFrom, std::size_t nTo, CmUint32 dwBytes) {
    for (std::size_t n = nFrom; n < nTo; ++n) {
        const CmUint32 dwNoted = m_vecData[m_vecOrder[n]].dwNoted;
        const bool bNote = IsNote(dwNoted, dwBytes);
        const bool bFits = bNote && dwNoted <= dwBytes;
        if (bNote) ++m_nNotes;
        if (bFits) ++m_nFitting;
        const CmUint32 dwOwn = bFits ? dwNoted : 0;
        const CmUint32 dwExtent = n + 1 == nTo ? dwBytes : dwOwn;
        m_vecExtents[m_vecOrder[n]] = {dwExtent, bFits ? dwNoted : dwExtent,
                                       bNote && !bFits ? dwNoted - dwExtent : 0};
    }
}

void CStreamExtents::CheckNotes() {
    if (2 * m_nFitting >= m_nNotes) return;
    for (tagStreamExtent& aExtent : m_vecExtents) aExtent = {aExtent.dwExtent, aExtent.dwExtent, 0};
}
