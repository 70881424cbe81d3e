#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/CmEvent.h"

/// Decides how the owner of an event queue rests when it has no work, and which events end its
/// rest. Waking a sleeping thread costs the thread that posts several microseconds, about as much
/// as writing a block, so an owner that has just had work does not sleep at once:
///
///     it has fired          so it first                   which ends after    or with
///     an urgent event       lingers: polls and yields     30 us               any event
///     a non-urgent event    naps                          2 ms                an urgent event
///     both                  lingers, then naps
///     and afterwards        sleeps                                            any event
///
/// This is the one place for that policy: the code that makes an event states its urgency, and the
/// queue passes on what it fires and queues. A part of its queue, whose mutex guards it except
/// where a method says otherwise. It cannot fail.
class CCmQueueRest {
 public:
    using Clock = std::chrono::steady_clock;

    /// Owner only, without the lock: an event of this urgency is fired.
    void OnFire(ICmEvent::Urgency aUrgency);

    /// With the lock: whether there is anything to do, from now on.
    void SetNews(bool bNews) { m_bNews.store(bNews, std::memory_order_relaxed); }

    /// With the lock: returns whether something of this urgency ends the owner's rest. If so, the
    /// caller calls Wake after it has released the lock.
    bool End(ICmEvent::Urgency aUrgency);
    void Wake() { m_wake.notify_one(); }

    /// Owner only, without the lock: lingers, if it has fired an urgent event since it last did.
    void Linger();

    /// Owner only: whether it has fired a non-urgent event since the last call.
    bool TakeNap();

    /// Owner only, with the lock, which is released meanwhile: these return when the rest has been
    /// ended, and may also return early. SleepUntil returns whether that was before aLimit.
    void Nap(std::unique_lock<std::mutex>& aLock);
    void Sleep(std::unique_lock<std::mutex>& aLock);
    bool SleepUntil(std::unique_lock<std::mutex>& aLock, Clock::time_point aLimit);

    /// In the child of a fork, with the lock: nobody rests here.
    void AfterForkInChild();

 private:
    enum State { Awake, Napping, Asleep };

    std::atomic<bool> m_bNews{false};  // written with the lock, read by Linger without it
    std::condition_variable m_wake;    // the owner waits on it

    State m_state = Awake;  // guarded by the queue's mutex; Awake as soon as the rest is ended

    // The owner's.
    bool m_bFiredUrgent = false;     // since it last lingered
    bool m_bFiredNotUrgent = false;  // since it last napped
};
