#include "fileop/BlockStore.h"

#include <utility>

#include "platform/CmSystem.h"

namespace {

constexpr std::size_t c_nStep = 8192;  // so that blocks of about the same size fit one another

}  // namespace

CBlockStore::CBlockStore() {
    CmRegisterExitHandler([] {
        if (!CmIsForkedChild()) Instance().Clear();
    });
}

CCmString CBlockStore::Take(std::size_t nCapacity) {
    if (nCapacity >= c_nLeast) {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        if (m_nFree > 0) {
            CCmString strBlock = std::move(m_aFree[--m_nFree]);
            m_nKept -= strBlock.capacity();
            if (strBlock.capacity() >= nCapacity) return strBlock;
        }
    }
    CCmString strBlock;
    strBlock.reserve((nCapacity + c_nStep - 1) / c_nStep * c_nStep);
    return strBlock;
}

void CBlockStore::Give(CCmString&& strBlock) noexcept {
    const std::size_t nCapacity = strBlock.capacity();
    if (nCapacity < c_nLeast) return;
    strBlock.clear();
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    if (m_nKept + nCapacity > c_nMost) return;
    m_nKept += nCapacity;
    m_aFree[m_nFree++] = std::move(strBlock);  // there is room: each is at least c_nLeast
}

void CBlockStore::Clear() noexcept {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    while (m_nFree > 0) CCmString().swap(m_aFree[--m_nFree]);
    m_nKept = 0;
}
