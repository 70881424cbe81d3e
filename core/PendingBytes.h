#pragma once

#include <atomic>
#include <cstdint>
#include <limits>

#include "platform/CmEvent.h"
#include "platform/CmReference.h"
#include "platform/CmTypes.h"

/// A count of pending bytes and its limit: that of the process, or that of one handler.
///
/// Counted, because the requests of a handler may outlive it. Any thread: the values are atomics.
/// Reducing the bytes, setting the limit and reading either are sequentially consistent:
/// CRoomWakeUp depends on it so that no wake-up is missed. Nothing here can fail.
class CPendingCount final : public CCmReferenceControlT<CCmMutexThread> {
 public:
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

/// Bytes that were given to the worker thread, which has not finished with them. They count as
/// pending (CCacheFileManager::GetPendingBytes) while this object exists. Each request has one as a
/// member, so the bytes are subtracted once, whether the request runs, is refused or is dropped.
///
/// Any thread: the counts are atomics. Nothing here can fail.
class CPendingBytes {
 public:
    /// pHandler is the handler's count, or null if it has none. A reference to it is kept.
    CPendingBytes(std::uint64_t qwBytes, CPendingCount* pHandler);
    ~CPendingBytes();
    CPendingBytes(const CPendingBytes&) = delete;
    CPendingBytes& operator=(const CPendingBytes&) = delete;

    /// The count of the process.
    static CPendingCount& OfProcess();

    /// Whether there is any limit, so that CheckRoom could refuse something.
    static bool HasLimit(const CPendingCount* pHandler) {
        return pHandler || OfProcess().HasLimit();
    }

    /// Returns 0 if qwBytes more fit within the host's limits; 0 bytes always fit. Returns
    /// CACHE_ERR_TRY_AGAIN if they will fit when less is pending, and CACHE_ERR_OUT_OF_MEMORY if
    /// they are more than a limit. Nothing is traced. After CACHE_ERR_TRY_AGAIN a host that has
    /// turned it on is woken when they fit (CRoomWakeUp).
    static CmInt32 CheckRoom(std::uint64_t qwBytes, CPendingCount* pHandler);

    /// How urgent a write of qwBytes more is. No thread waits for a write, so it is urgent only if
    /// the pending bytes use much memory or come near one of the host's limits.
    static ICmEvent::Urgency GetUrgency(std::uint64_t qwBytes, const CPendingCount* pHandler);

 private:
    const std::uint64_t m_qwBytes;
    const CRefPtr<CPendingCount> m_pHandler;
};
