#include "fileop/BlockStore.h"

#include <algorithm>
#include <utility>

#include "platform/CmSystem.h"

namespace {

/// Capacities are multiples of this, so that blocks of about the same size can replace each other.
constexpr std::size_t c_nCapacityStep = 8192;

}  // namespace

CBlockStore::CBlockStore() {
    CmRegisterExitHandler([] {
        if (!CmIsForkedChild()) Instance().Clear();
    });
}

CCmString CBlockStore::Take(std::size_t nCapacity, std::size_t nMaxCapacity) {
    CCmString strBlock;
    if (nCapacity < c_nMinBlock) {
        strBlock.reserve(nCapacity);
        return strBlock;
    }
    strBlock = Find(nCapacity, nMaxCapacity);
    if (strBlock.capacity() < nCapacity)
        strBlock.reserve((nCapacity + c_nCapacityStep - 1) / c_nCapacityStep * c_nCapacityStep);
    return strBlock;
}

/// Returns the kept block that was returned last among those that fit, or an empty string.
CCmString CBlockStore::Find(std::size_t nCapacity, std::size_t nMaxCapacity) {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    for (std::size_t i = m_nFree; i-- > 0;) {
        const std::size_t nSize = m_aFree[i].capacity();
        if (nSize < nCapacity || nSize > nMaxCapacity) continue;
        CCmString strBlock = std::move(m_aFree[i]);
        std::move(m_aFree.begin() + i + 1, m_aFree.begin() + m_nFree, m_aFree.begin() + i);
        --m_nFree;
        m_nKept -= nSize;
        return strBlock;
    }
    return {};
}

void CBlockStore::Give(CCmString&& strBlock) noexcept {
    const std::size_t nCapacity = strBlock.capacity();
    if (nCapacity < c_nMinBlock || nCapacity > c_nMaxKept) return;
    strBlock.clear();
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    std::size_t nDrop = 0;
    for (; m_nKept + nCapacity > c_nMaxKept; ++nDrop) {
        m_nKept -= m_aFree[nDrop].capacity();
        CCmString().swap(m_aFree[nDrop]);
    }
    if (nDrop > 0) std::move(m_aFree.begin() + nDrop, m_aFree.begin() + m_nFree, m_aFree.begin());
    m_nFree -= nDrop;
    m_nKept += nCapacity;
    m_aFree[m_nFree++] = std::move(
        strBlock);  // m_aFree cannot be full, because each block has at least c_nMinBlock bytes
}

void CBlockStore::Clear() noexcept {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    while (m_nFree > 0) CCmString().swap(m_aFree[--m_nFree]);
    m_nKept = 0;
}
