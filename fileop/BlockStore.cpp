#include "fileop/BlockStore.h"

#include <utility>

namespace {

constexpr std::size_t c_nLeast = 32768;  // what is smaller is made as quickly as it is found
constexpr std::size_t c_nStep = 8192;    // so that blocks of about the same size fit one another
constexpr std::size_t c_nMost = 2U << 20;

}  // namespace

CBlockStore::CBlockStore() { m_vecFree.reserve(c_nMost / c_nLeast); }

CCmString CBlockStore::Take(std::size_t nCapacity) {
    if (nCapacity >= c_nLeast) {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        if (!m_vecFree.empty()) {
            CCmString strBlock = std::move(m_vecFree.back());
            m_vecFree.pop_back();
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
    m_vecFree.push_back(std::move(strBlock));  // there is room: each is at least c_nLeast
}
