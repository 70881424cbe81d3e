#include "fileop/SpaceWatch.h"

bool CSpaceWatch::HasFallen(IFileOperation& aFile, std::uint64_t& qwFree) {
    const std::uint64_t qwMark = m_qwMark.load(std::memory_order_relaxed);
    if (qwMark == 0) return false;
    const auto aNow = std::chrono::steady_clock::now();
    if (aNow < m_next) return false;
    m_next = aNow + std::chrono::seconds(1);
    if (aFile.GetFreeSpace(qwFree) != CACHE_OK) return false;
    const bool bWasLow = m_bLow;
    m_bLow = qwFree < qwMark;
    return m_bLow && !bWasLow;
}
