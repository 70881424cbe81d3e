#include "fileop/SyncDescriptor.h"

#include <utility>

#include "platform/CmFile.h"

std::atomic<int> CSyncDescriptor::s_nOpen{0};

CSyncDescriptor::CSyncDescriptor(int nFile) : m_nFile(nFile) {
    if (nFile >= 0) s_nOpen.fetch_add(1, std::memory_order_relaxed);
}

CSyncDescriptor::CSyncDescriptor(CSyncDescriptor&& aOther) noexcept
    : m_nFile(std::exchange(aOther.m_nFile, -1)) {}

CSyncDescriptor& CSyncDescriptor::operator=(CSyncDescriptor&& aOther) noexcept {
    std::swap(m_nFile, aOther.m_nFile);
    return *this;
}

int CSyncDescriptor::Close() {
    if (m_nFile < 0) return 0;
    s_nOpen.fetch_sub(1, std::memory_order_relaxed);
    return CmFile::CloseDescriptor(std::exchange(m_nFile, -1));
}
