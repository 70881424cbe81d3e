#include "fileop/SyncDescriptor.h"

#include <utility>

#include "platform/CmFile.h"

CSyncDescriptor::CSyncDescriptor(CSyncDescriptor&& aOther) noexcept
    : m_nFile(std::exchange(aOther.m_nFile, -1)) {}

CSyncDescriptor& CSyncDescriptor::operator=(CSyncDescriptor&& aOther) noexcept {
    std::swap(m_nFile, aOther.m_nFile);
    return *this;
}

int CSyncDescriptor::Close() {
    if (m_nFile < 0) return 0;
    return CmFile::CloseDescriptor(std::exchange(m_nFile, -1));
}
