#pragma once

#include <cstdint>

#include "platform/CmEvent.h"
#include "platform/CmTypes.h"

/// Bytes that were passed to the worker thread and are not yet processed. They count as pending
/// (CCacheFileManager::GetPendingBytes) while this object exists. It is a member of a request, so
/// the bytes are subtracted exactly once, whether the request runs, is refused or is dropped.
///
/// Any thread: the counts are atomics. Nothing here can fail.
class CPendingBytes {
 public:
    explicit CPendingBytes(std::uint64_t qwBytes);
    ~CPendingBytes();
    CPendingBytes(const CPendingBytes&) = delete;
    CPendingBytes& operator=(const CPendingBytes&) = delete;

    /// Checks whether qwBytes more would stay within the host's limit. Returns 0 if so, and always
    /// for 0 bytes; CACHE_ERR_TRY_AGAIN if they would when less is pending; CACHE_ERR_OUT_OF_MEMORY
    /// if they alone exceed the limit. Nothing is traced.
    static CmInt32 CheckRoom(std::uint64_t qwBytes);

    /// Returns how urgent a write of qwBytes more is. The host does not wait for writes, so a write
    /// is urgent only if the pending bytes use much memory or approach the host's limit.
    static ICmEvent::Urgency GetUrgency(std::uint64_t qwBytes);

 private:
    const std::uint64_t m_qwBytes;
};
