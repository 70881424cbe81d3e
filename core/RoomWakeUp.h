#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "core/PendingCount.h"
#include "platform/CmThread.h"

namespace cachefile_internal {

/// A refused write: its number of bytes, the count of its handler (null if the handler has no
/// limit), and whether the limit of the process refused it or that of the handler.
struct tagRefusal {
    CRefPtr<CPendingCount> pHandler;
    bool bByProcess;
    std::uint64_t qwBytes;
};

}  // namespace cachefile_internal

using cachefile_internal::tagRefusal;

/// Wakes a host whose write was refused by a limit of pending bytes, when the write fits
/// (CCacheFileManager::SetRoomWakeUp).
///
/// One object for the process, never destroyed. Refusals are added on the caller thread. They are
/// removed on the thread that finishes a write or changes a limit. A mutex guards them. While there
/// is no refusal, finishing a write costs one load. A wake-up cannot be missed: the caller thread
/// first adds the refusal and then reads counts and limits again. The other thread first reduces a
/// count or changes a limit, and then checks for refusals. These four steps are sequentially
/// consistent. If there is no memory for the event, the next finished write tries again; if there
/// is none for the refusal, the host is not woken.
class CRoomWakeUp {
 public:
    static CRoomWakeUp& Instance();

    void SetOn(bool bOn);

    /// Called on the caller thread when a write was refused.
    static void OnRefused(const tagRefusal& aRefusal);

    /// Called on any thread when less is pending or a limit has changed.
    static void OnFinished() {
        if (s_bRefused.load()) Instance().WakeIfRoom();
    }

    /// Called when the wake-up event is freed. Then the next one may be posted.
    void OnEventFreed() { m_bPosted.store(false); }

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CRoomWakeUp();

    void Add(const tagRefusal& aRefusal);
    void WakeIfRoom();
    void AfterForkInChild();

    static std::atomic<bool> s_bOn;
    static std::atomic<bool> s_bRefused;  // m_vecRefusals is not empty

    std::atomic<bool> m_bPosted{false};  // a wake-up event is in the queue

    std::mutex m_mutex;
    // Guarded by m_mutex.
    std::vector<tagRefusal> m_vecRefusals;  // two at most for a limited handler
    CRefPtr<ACmThread> m_pCaller;           // the caller thread of the last refusal
};
