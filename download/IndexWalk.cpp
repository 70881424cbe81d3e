#include "download/IndexWalk.h"

#include <algorithm>
#include <functional>
#include <numeric>

#include "platform/CmResult.h"

CIndexWalk::CIndexWalk(IFileOperation& aFile, const tagQXFFileHeader& aHeader,
                       IIndexVisitor& aVisitor, Circles aCircles, CmUint32 dwMax)
    : m_dwIndexType(aHeader.dwIndexType),
      m_visitor(aVisitor),
      m_circles(aCircles),
      m_reader(aFile),
      m_bWatching(aHeader.dwIndexType == Index_Chained),
      m_dwLeft(std::min(aHeader.dwEntryCount, dwMax)) {}

CIndexWalk::End CIndexWalk::Run() {
    while (m_dwLeft > 0) {
        if (m_bWatching && m_watch.HasReturned(m_qwOffset, m_nKnown)) {
            if (m_circles == Circles_End) return End_Circle;
            const End aEnd = SkipLaps();
            if (aEnd != End_Complete || m_dwLeft == 0) return aEnd;
        }
        if (m_dwRead == c_dwMaxEntriesRead) return End_TooMany;
        tagWalkEntry aEntry{};
        End aEnd = ReadEntry(aEntry);
        if (aEnd == End_Complete) aEnd = TakeEntry(aEntry);
        if (aEnd != End_Complete) return aEnd;
        m_qwOffset = NextEntryOffset(m_dwIndexType, aEntry.aInfo.aEntry, m_qwOffset);
        --m_dwLeft;
    }
    return End_Complete;
}

CIndexWalk::End CIndexWalk::AskVisitor(CmInt32 lResult) {
    m_lStopped = lResult;
    return lResult == CACHE_OK ? End_Complete : End_Stopped;
}

CIndexWalk::End CIndexWalk::ReadEntry(tagWalkEntry& aEntry) {
    unsigned char aBytes[c_dwEntrySize];
    CmUint32 dwLength = 0;
    const CmInt32 lResult = m_reader.ReadEntry(m_qwOffset, aBytes, dwLength);
    m_read = ParseEntry(lResult, aBytes, dwLength, aEntry.aInfo.aEntry);
    if (m_read.aEnd != tagRecordRead::End_Whole) return End_Unreadable;
    aEntry.dwOffset = static_cast<CmUint32>(m_qwOffset);
    return End_Complete;
}

CIndexWalk::End CIndexWalk::TakeEntry(tagWalkEntry& aEntry) {
    aEntry.bKnown = TagToFileDescriber(aEntry.aInfo.aEntry, aEntry.aInfo.aDescriber) == CACHE_OK;
    aEntry.dwLeft = m_dwLeft;
    if (aEntry.bKnown && m_nKnown == c_dwMaxKnownEntries) return End_TooMany;
    ++m_dwRead;
    if (aEntry.bKnown) ++m_nKnown;
    return AskVisitor(m_visitor.OnEntry(aEntry));
}

/// The walk is in a circle. What the remaining whole laps would add is known without reading them
/// again: nothing, or the known entries of the last lap, repeated up to the budget. Fewer entries
/// than one lap are left then, so the walk does not return to the same entry again.
CIndexWalk::End CIndexWalk::SkipLaps() {
    const std::size_t nBegin = m_watch.GetKnownBefore();
    const std::size_t nEnd = m_nKnown;
    if (nBegin == nEnd) {
        m_dwLeft = 0;
        return End_Complete;
    }
    for (; m_dwLeft >= m_watch.GetLapLength(); m_dwLeft -= m_watch.GetLapLength()) {
        for (std::size_t nIndex = nBegin; nIndex < nEnd; ++nIndex) {
            if (m_nKnown == c_dwMaxKnownEntries) return End_TooMany;
            ++m_nKnown;
            const End aEnd = AskVisitor(m_visitor.OnKnownAgain(nIndex, m_dwLeft));
            if (aEnd != End_Complete) return aEnd;
        }
    }
    return End_Complete;
}

std::size_t cachefile_internal::CountBeforeRepeat(const std::vector<CmUint32>& vecOffsets) {
    const auto itBegin = vecOffsets.begin();
    const auto itEnd = vecOffsets.end();
    if (std::adjacent_find(itBegin, itEnd, std::greater_equal<>()) == itEnd)
        return vecOffsets.size();  // ascending, like most indexes
    std::vector<CmUint32> vecOrder(vecOffsets.size());
    std::iota(vecOrder.begin(), vecOrder.end(), 0);
    std::sort(vecOrder.begin(), vecOrder.end(), [&](CmUint32 a, CmUint32 b) {
        return vecOffsets[a] != vecOffsets[b] ? vecOffsets[a] < vecOffsets[b] : a < b;
    });
    std::size_t nFirst = vecOffsets.size();
    for (std::size_t i = 1; i < vecOrder.size(); ++i)
        if (vecOffsets[vecOrder[i]] == vecOffsets[vecOrder[i - 1]])
            nFirst = std::min<std::size_t>(nFirst, vecOrder[i]);
    return nFirst;
}
