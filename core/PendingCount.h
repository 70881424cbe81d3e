#pragma once

#include <atomic>
#include <cstdint>
#include <limits>

#include "platform/CmReference.h"
#include "platform/CmTypes.h"

/// A count of pending bytes and its limit: that of the process, or that of one handler.
///
/// Counted, because the requests of a handler may outlive it. Any thread: the values are atomics.
/// Reducing the bytes, setting the limit and reading either are sequentially consistent:
/// CRoomWakeUp depends on it so that no wake-up is missed. Nothing here can fail.
class CPendingCount final : public CCmReferenceControlT<CCmMutexThread> {
 public:
    static CPendingCount& OfProcess();

    /// Values below 65,536 count as 65,536; the largest value means no limit.
    void SetLimit(std::uint64_t qwBytes);
    bool HasLimit() const { return GetLimit() != c_qwNoLimit; }

    std::uint64_t GetLimit() const { return m_qwLimit.load(); }
    std::uint64_t GetBytes() const { return m_qwBytes.load(); }

    void Add(std::uint64_t qwBytes) { m_qwBytes.fetch_add(qwBytes, std::memory_order_relaxed); }
    void Remove(std::uint64_t qwBytes) { m_qwBytes.fetch_sub(qwBytes); }

    bool HasRoom(std::uint64_t qwBytes) const {
        const std::uint64_t qwLimit = GetLimit();
        return qwBytes <= qwLimit && GetBytes() <= qwLimit - qwBytes;
    }
    bool IsAtMostHalf() const { return GetBytes() <= GetLimit() / 2; }

 private:
    static constexpr std::uint64_t c_qwNoLimit = std::numeric_limits<std::uint64_t>::max();

    std::atomic<std::uint64_t> m_qwBytes{0};
    std::atomic<std::uint64_t> m_qwLimit{c_qwNoLimit};
};
