#pragma once

#include <atomic>
#include <chrono>

#include "fileop/FileOperation.h"

/// Watches the free space of the file system to which the files of one handler are written.
///
/// Owned by the handler and by the writes on their way to the worker. The mark is set on the host's
/// thread; the rest belongs to the thread that writes. Where the system does not give the free
/// space, nothing is found.
class CSpaceWatch final : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// 0: nothing is watched.
    void SetMark(std::uint64_t qwBytes) { m_qwMark.store(qwBytes, std::memory_order_relaxed); }

    /// Whether the free space where aFile is has fallen below the mark since it was last at the
    /// mark or above it; qwFree is it then. The system is asked once a second at most.
    bool HasFallen(IFileOperation& aFile, std::uint64_t& qwFree);

 private:
    std::atomic<std::uint64_t> m_qwMark{0};
    std::chrono::steady_clock::time_point m_next{};  // nothing is asked before
    bool m_bLow = false;
};
