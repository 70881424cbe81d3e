#pragma once

#include <atomic>
#include <chrono>

#include "fileop/FileOperation.h"

/// Watches the free space of the file system to which the files of one handler are written.
///
/// Owned by the handler and by its writes that are queued for the worker. The mark is set on the
/// host's thread, so it is atomic, and so is m_bNewMark, through which the writing thread learns of
/// it. The other members are used only on the thread that writes. If the system does not
/// report the free space, HasFallen returns false.
class CSpaceWatch final : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// 0 ends the watch. If the free space is already below the mark, also below an earlier one, it
    /// is reported once more.
    void SetMark(std::uint64_t qwBytes) {
        m_qwMark.store(qwBytes);
        m_bNewMark.store(true);
    }

    /// Returns true once when the free space of the file system of aFile is below the mark, with
    /// the free space in qwFree; again only after it was at the mark or above, or after the mark
    /// was set again. Queries the system at most once a second.
    bool HasFallen(IFileOperation& aFile, std::uint64_t& qwFree);

 private:
    std::atomic<std::uint64_t> m_qwMark{0};
    std::atomic<bool> m_bNewMark{false};             // SetMark was called after the last query
    std::chrono::steady_clock::time_point m_next{};  // the system is not queried before
    bool m_bLow = false;
};
