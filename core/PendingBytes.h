#pragma once

#include <cstdint>

/// Bytes that the worker thread has been given and has not finished with: they count as pending
/// (CCacheFileManager::GetPendingBytes) while this lives. A request has one as a member, so they
/// are taken off the count once, whether it runs, is refused or is dropped. Any thread.
class CPendingBytes {
 public:
    explicit CPendingBytes(std::uint64_t qwBytes);
    ~CPendingBytes();
    CPendingBytes(const CPendingBytes&) = delete;
    CPendingBytes& operator=(const CPendingBytes&) = delete;

    /// Whether qwBytes more stay within the host's limit. 0 bytes always do.
    static bool HasRoomFor(std::uint64_t qwBytes);

    /// Whether all that is pending may wait for a moment: it takes little memory, and the host's
    /// limit is far.
    static bool CanWait();

 private:
    const std::uint64_t m_qwBytes;
};
