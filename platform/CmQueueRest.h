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
///     an urgent event       lingers: polls and yields     30 us               any event
///     a non-urgent event    naps                          2 ms                an urgent event
///     both                  lingers, then naps
///     and afterwards        sleeps                                            any event
///
/// Only this class knows these rules. The code that creates an event states its urgency, and the
/// queue reports the urgency of each event that it queues or fires. A member of its queue; the
/// queue's mutex guards it unless a method's comment says otherwise. It cannot fail.
class CCmQueueRest {
 public:
    using Clock = std::chrono::steady_clock;

    /// Owner only, without the lock. Called before an event of this urgency is fired.
    void OnFire(ICmEvent::Urgency aUrgency);

    /// With the lock. Sets whether the owner has anything to do, which ends a Linger.
    void SetNews(bool bNews) { m_bNews.store(bNews, std::memory_order_relaxed); }

    /// With the lock. Returns whether an event of this urgency ends the owner's wait. If so, the
    /// caller calls Wake after it has released the lock.
    bool End(ICmEvent::Urgency aUrgency);
    void Wake() { m_wake.notify_one(); }

    /// Owner only, without the lock. Lingers if an urgent event was fired since the last call.
    void Linger();

    /// Owner only. Returns whether a non-urgent event was fired since the last call.
    bool TakeNap();

    /// Owner only, with the lock, which is released during the wait. They return when the wait has
    /// been ended, and may return early. SleepUntil returns false if aLimit has been reached.
    void Nap(std::unique_lock<std::mutex>& aLock);
    void Sleep(std::unique_lock<std::mutex>& aLock);
    bool SleepUntil(std::unique_lock<std::mutex>& aLock, Clock::time_point aLimit);

    /// In the child of a fork, with the lock. No thread of the child waits.
    void AfterForkInChild();

 private:
    enum State { Awake, Napping, Asleep };

    std::atomic<bool> m_bNews{false};  // written with the lock, read by Linger without it
    std::condition_variable m_wake;    // the owner waits on it

    State m_state = Awake;  // guarded by the queue's mutex; Awake when the wait is ended

    // Used only by the owner.
    bool m_bFiredUrgent = false;     // since it last lingered
    bool m_bFiredNotUrgent = false;  // since it last napped
};
