#include "core/PendingBytes.h"

#include <algorithm>
#include <atomic>
#include <limits>

#include "core/CacheFileManager.h"
#include "platform/CmResult.h"

namespace {

/// The smallest limit. A buffer can pass on up to 32,767 gathered bytes together with an append of
/// 32,768 bytes; a smaller limit could refuse such a block forever.
constexpr std::uint64_t c_qwMinLimit = 65536;

/// Writes become urgent above this: 32 blocks, which is enough for the worker to write many of them
/// after each nap, and no more memory than the store keeps for blocks anyway.
constexpr std::uint64_t c_qwMaxNotUrgent = 1U << 20;

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

ICmEvent::Urgency CPendingBytes::GetUrgency(std::uint64_t qwBytes) {
    // Half the limit, so that the worker writes before the host reaches the limit and is refused.
    const std::uint64_t qwMax =
        std::min(c_qwMaxNotUrgent, s_qwPendingLimit.load(std::memory_order_relaxed) / 2);
    return CCacheFileManager::GetPendingBytes() + qwBytes <= qwMax ? ICmEvent::NotUrgent
                                                                   : ICmEvent::Urgent;
}

std::uint64_t CCacheFileManager::GetPendingBytes() {
    return s_qwPendingBytes.load(std::memory_order_relaxed);
}

void CCacheFileManager::SetPendingLimit(std::uint64_t qwBytes) {
    s_qwPendingLimit.store(std::max(qwBytes, c_qwMinLimit), std::memory_order_relaxed);
}
