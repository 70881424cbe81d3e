#include "fileop/SpaceWatch.h"

bool CSpaceWatch::HasFallen(IFileOperation& aFile, std::uint64_t& qwFree) {
    if (m_qwMark.load(std::memory_order_relaxed) == 0) return false;
    const auto aNow = std::chrono::steady_clock::now();
    if (aNow < m_next) return false;
    m_next = aNow + std::chrono::seconds(1);
    if (aFile.GetFreeSpace(qwFree) != CACHE_OK) return false;
    const bool bWasLow = !m_bNewMark.exchange(false) && m_bLow;
    m_bLow = qwFree < m_qwMark.load();  // after the exchange, so that no new mark is missed
    return m_bLow && !bWasLow;
}
