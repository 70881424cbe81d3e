#include "fileop/FileRanges.h"

#include <algorithm>
#include <new>
#include <utility>

bool CFileRanges::IsTouching(const tagFileHole& aFirst, const tagFileHole& aSecond) const {
    return aFirst.qwOffset + (m_bInPlace ? aFirst.qwLength : 0) == aSecond.qwOffset;
}

void CFileRanges::Add(std::uint64_t qwOffset, std::uint64_t qwLength, std::size_t nMost) noexcept {
    if (qwLength == 0) return;
    m_qwBytes += qwLength;
    const tagFileHole aNew{qwOffset, qwLength, m_bInPlace};
    auto itNext = std::upper_bound(m_vecRanges.begin(), m_vecRanges.end(), aNew,
                                   [](const tagFileHole& aLeft, const tagFileHole& aRight) {
                                       return aLeft.qwOffset < aRight.qwOffset;
                                   });
    const bool bBefore = itNext != m_vecRanges.begin() && IsTouching(*(itNext - 1), aNew);
    const bool bAfter = itNext != m_vecRanges.end() && IsTouching(aNew, *itNext);
    if (bBefore) {
        (itNext - 1)->qwLength += qwLength + (bAfter ? itNext->qwLength : 0);
        if (bAfter) m_vecRanges.erase(itNext);
    } else if (bAfter) {
        itNext->qwOffset = qwOffset;
        itNext->qwLength += qwLength;
    } else {
        try {
            m_bComplete = m_bComplete && m_vecRanges.size() < nMost;
            if (m_bComplete) m_vecRanges.insert(itNext, aNew);
        } catch (const std::bad_alloc&) {
            m_bComplete = false;
        }
    }
}

void CFileRanges::AddAll(const CFileRanges& aOther, std::size_t nMost) noexcept {
    const std::uint64_t qwBytes = m_qwBytes + aOther.m_qwBytes;
    for (const tagFileHole& aRange : aOther.m_vecRanges)
        Add(aRange.qwOffset, aRange.qwLength, nMost);
    m_qwBytes = qwBytes;
    m_bComplete = m_bComplete && aOther.m_bComplete;
}

void CFileRanges::MoveUp(std::uint64_t qwOffset, std::uint64_t qwLength) noexcept {
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
