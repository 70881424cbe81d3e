#include "fileop/FileRanges.h"

#include <algorithm>
#include <new>
#include <utility>

std::uint64_t CFileRanges::EndOf(const tagFileHole& aRange) const {
    return aRange.qwOffset + (m_bInPlace ? aRange.qwLength : 0);
}

void CFileRanges::Add(std::uint64_t qwOffset, std::uint64_t qwLength, std::size_t nMax) noexcept {
    if (qwLength == 0) return;
    m_qwBytes += qwLength;
    tagFileHole aNew{qwOffset, qwLength, m_bInPlace};
    // Those that the new one touches or overlaps. The ends are sorted too, as no two overlap.
    const auto itFirst = std::lower_bound(
        m_vecRanges.begin(), m_vecRanges.end(), qwOffset,
        [&](const tagFileHole& aRange, std::uint64_t qwAt) { return EndOf(aRange) < qwAt; });
    auto itEnd = itFirst;
    for (; itEnd != m_vecRanges.end() && itEnd->qwOffset <= EndOf(aNew); ++itEnd)
        Join(aNew, *itEnd);
    try {
        if (itFirst != itEnd) {
            *itFirst = aNew;
            m_vecRanges.erase(itFirst + 1, itEnd);
        } else if (m_bComplete = m_bComplete && m_vecRanges.size() < nMax; m_bComplete) {
            m_vecRanges.insert(itFirst, aNew);
        }
    } catch (const std::bad_alloc&) {
        m_bComplete = false;
    }
}

/// Extends aRange by aOther, which touches or overlaps it.
void CFileRanges::Join(tagFileHole& aRange, const tagFileHole& aOther) const {
    const std::uint64_t qwEnd = std::max(EndOf(aRange), EndOf(aOther));
    aRange.qwOffset = std::min(aRange.qwOffset, aOther.qwOffset);
    aRange.qwLength = m_bInPlace ? qwEnd - aRange.qwOffset : aRange.qwLength + aOther.qwLength;
}

void CFileRanges::AddAll(const CFileRanges& aOther, std::size_t nMax) noexcept {
    const std::uint64_t qwBytes = m_qwBytes + aOther.m_qwBytes;
    for (const tagFileHole& aRange : aOther.m_vecRanges)
        Add(aRange.qwOffset, aRange.qwLength, nMax);
    m_qwBytes = qwBytes;
    m_bComplete = m_bComplete && aOther.m_bComplete;
}

void CFileRanges::ShiftTowardsStart(std::uint64_t qwOffset, std::uint64_t qwLength) noexcept {
    for (tagFileHole& aRange : m_vecRanges)
        if (aRange.qwOffset > qwOffset)
            aRange.qwOffset -= std::min(qwLength, aRange.qwOffset - qwOffset);
}

void CFileRanges::Clear() noexcept {
    m_qwBytes = 0;
    m_bComplete = true;
    m_vecRanges.clear();
}

void CFileRanges::Swap(CFileRanges& aOther) noexcept {
    std::swap(m_qwBytes, aOther.m_qwBytes);
    std::swap(m_bComplete, aOther.m_bComplete);
    m_vecRanges.swap(aOther.m_vecRanges);
}
