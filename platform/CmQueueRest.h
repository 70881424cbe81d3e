#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/CmEvent.h"

/// Decides how the owner of an event queue waits when it has no work, and which events end its
/// wait. Waking a sleeping thread costs the posting thread several microseconds, about as much as
/// writing a block. So an owner that has just had work does not sleep at once:
///
///     it has fired          so it first                   which ends after    or with
///     an urgent event       polls and yields              30 us               any event
///     a non-urgent event    sleeps briefly                2 ms                an urgent event
///     both                  polls, then sleeps briefly
///     and afterwards        sleeps                                            any event
///
/// Only this class knows these rules. The code that creates an event states its urgency, and the
/// queue reports the urgency of each event that it queues or fires. It is a member of its queue.
/// The queue's mutex guards it, except where a method's comment allows calls without the lock. It
/// cannot fail.
class CCmQueueRest {
 public:
    using Clock = std::chrono::steady_clock;

    /// Owner only, without the lock. Called before an event of this urgency is fired.
    void OnFire(ICmEvent::Urgency aUrgency);

    /// With the lock. Sets whether the owner has anything to do, which ends Poll.
    void SetHasWork(bool bHasWork) { m_bHasWork.store(bHasWork, std::memory_order_relaxed); }

    /// With the lock. Returns whether an event of this urgency ends the owner's wait. If so, the
    /// caller calls Wake after it has released the lock.
    bool EndWait(ICmEvent::Urgency aUrgency);
    void Wake() { m_wake.notify_one(); }

    /// Owner only, without the lock. Waits up to 30 us for work if an urgent event was fired since
    /// the last call.
    void Poll();

    /// Owner only. Returns whether a non-urgent event was fired since the last call.
    bool TakeFiredNotUrgent();

    /// Owner only, with the lock, which is released during the wait. They return when the wait has
    /// been ended, and may return early. SleepUntil returns false if aLimit has been reached.
    void SleepBriefly(std::unique_lock<std::mutex>& aLock);
    void Sleep(std::unique_lock<std::mutex>& aLock);
    bool SleepUntil(std::unique_lock<std::mutex>& aLock, Clock::time_point aLimit);

    /// In the child of a fork, with the lock. No thread of the child waits.
    void AfterForkInChild();

 private:
    enum State { Awake, InShortSleep, Asleep };

    // Written with the lock, read by Poll without it. Relaxed: it only ends the poll. The owner
    // looks at the queue itself with the lock.
    std::atomic<bool> m_bHasWork{false};
    std::condition_variable m_wake;  // the owner waits on it

    State m_state = Awake;  // guarded by the queue's mutex; Awake when the wait is ended

    // Used only by the owner.
    bool m_bFiredUrgent = false;     // since it last polled
    bool m_bFiredNotUrgent = false;  // since its last short sleep
};
