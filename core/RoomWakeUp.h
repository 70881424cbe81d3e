#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "core/PendingBytes.h"
#include "platform/CmThread.h"

namespace cachefile_internal {

/// A write that was refused: its bytes, the handler's count if that has a limit, and which of the
/// two limits refused it.
struct tagRefusal {
    CRefPtr<CPendingCount> pHandler;
    bool bByProcess;
    std::uint64_t qwBytes;
};

}  // namespace cachefile_internal

using cachefile_internal::tagRefusal;

/// Wakes a host whose write was refused by a limit of pending bytes, once there is room for it
/// (CCacheFileManager::SetRoomWakeUp).
///
/// One object for the process, never destroyed. Refusals are added on the caller thread and removed
/// on the thread that finishes the last write, with a mutex. While there is no refusal, finishing a
/// write costs one load. Neither side can miss the other: a refusal is added before the counts are
/// read again, a write is taken off the counts before the refusals are looked at, and all four are
/// sequentially consistent. Without memory for the event the next finished write tries again;
/// without memory for the refusal the host is not woken.
class CRoomWakeUp {
 public:
    static CRoomWakeUp& Instance();

    void SetOn(bool bOn);

    /// The caller thread: a write was refused.
    static void OnRefused(const tagRefusal& aRefusal);

    /// Any thread: less may be pending, or a limit has changed.
    static void OnFinished() {
        if (s_bRefused.load()) Instance().WakeIfRoom();
    }

    /// The wake-up has come: another one may be posted.
    void OnWoken() { m_bPosted.store(false); }

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CRoomWakeUp();

    void Add(const tagRefusal& aRefusal);
    void WakeIfRoom();
    void AfterForkInChild();

    static std::atomic<bool> s_bOn;
    static std::atomic<bool> s_bRefused;  // whether there are any refusals

    std::atomic<bool> m_bPosted{false};  // a wake-up is in the queue: one is enough

    std::mutex m_mutex;
    // Guarded by m_mutex.
    std::vector<tagRefusal> m_vecRefusals;  // at most two for a handler with a limit
    CRefPtr<ACmThread> m_pCaller;           // the thread that was refused
};
