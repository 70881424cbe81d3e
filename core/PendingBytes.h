#pragma once

#include <cstdint>

#include "platform/CmEvent.h"
#include "platform/CmTypes.h"

/// Bytes that were given to the worker thread, which has not finished with them. They count as
/// pending (CCacheFileManager::GetPendingBytes) while this lives. A request has one as a member, so
/// they are taken off the count once, whether the request runs, is refused or is dropped.
///
/// Any thread: the counts are atomics. Nothing here can fail.
class CPendingBytes {
 public:
    explicit CPendingBytes(std::uint64_t qwBytes);
    ~CPendingBytes();
    CPendingBytes(const CPendingBytes&) = delete;
    CPendingBytes& operator=(const CPendingBytes&) = delete;

    /// Returns 0 if qwBytes more stay within the host's limit, which 0 bytes always do;
    /// CACHE_ERR_TRY_AGAIN if they will when less is pending; CACHE_ERR_OUT_OF_MEMORY if they are
    /// more than the limit. Nothing is traced.
    static CmInt32 CheckRoom(std::uint64_t qwBytes);

    /// How urgent a write of qwBytes more is. Nobody waits for a write, so it is urgent only when
    /// what is pending uses much memory or comes near the host's limit.
    static ICmEvent::Urgency GetUrgency(std::uint64_t qwBytes);

 private:
    const std::uint64_t m_qwBytes;
};
