#include "core/PendingBytes.h"

#include <algorithm>
#include <atomic>
#include <limits>

#include "core/CacheFileManager.h"
#include "platform/CmResult.h"

namespace {

/// Below it a block that the gathering buffers pass on could never fit.
constexpr std::uint64_t c_qwLeastLimit = 65536;

constexpr std::uint64_t c_qwPatience = 1U << 20;

std::atomic<std::uint64_t> s_qwPendingBytes{0};
std::atomic<std::uint64_t> s_qwPendingLimit{std::numeric_limits<std::uint64_t>::max()};

}  // namespace

CPendingBytes::CPendingBytes(std::uint64_t qwBytes) : m_qwBytes(qwBytes) {
    s_qwPendingBytes.fetch_add(m_qwBytes, std::memory_order_relaxed);
}

CPendingBytes::~CPendingBytes() {
    s_qwPendingBytes.fetch_sub(m_qwBytes, std::memory_order_relaxed);
}

CmInt32 CPendingBytes::CheckRoom(std::uint64_t qwBytes) {
    const std::uint64_t qwLimit = s_qwPendingLimit.load(std::memory_order_relaxed);
    if (qwBytes == 0 || CCacheFileManager::GetPendingBytes() + qwBytes <= qwLimit) return CACHE_OK;
    return qwBytes <= qwLimit ? CACHE_ERR_TRY_AGAIN : CACHE_ERR_OUT_OF_MEMORY;
}

bool CPendingBytes::CanWait() {
    return CCacheFileManager::GetPendingBytes() <=
           std::min(c_qwPatience, s_qwPendingLimit.load(std::memory_order_relaxed) / 2);
}

std::uint64_t CCacheFileManager::GetPendingBytes() {
    return s_qwPendingBytes.load(std::memory_order_relaxed);
}

void CCacheFileManager::SetPendingLimit(std::uint64_t qwBytes) {
    s_qwPendingLimit.store(std::max(qwBytes, c_qwLeastLimit), std::memory_order_relaxed);
}
