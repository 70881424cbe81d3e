#pragma once

#include <cstdint>

#include "platform/CmTypes.h"

/// Bytes that the worker thread has been given and has not finished with: they count as pending
/// (CCacheFileManager::GetPendingBytes) while this lives. A request has one as a member, so they
/// are taken off the count once, whether it runs, is refused or is dropped. Any thread.
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

    /// Whether all that is pending may wait for a moment: it takes little memory, and the host's
    /// limit is far.
    static bool CanWait();

 private:
    const std::uint64_t m_qwBytes;
};
