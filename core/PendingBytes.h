#pragma once

#include <cstdint>

#include "core/PendingCount.h"
#include "platform/CmEvent.h"

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

    /// Whether there is any limit, so that CheckRoom could refuse something.
    static bool HasLimit(const CPendingCount* pHandler) {
        return pHandler || CPendingCount::OfProcess().HasLimit();
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
