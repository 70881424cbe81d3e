#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/CmEventList.h"

/// The event queue of one thread, its owner.
///
/// Posters append to m_waiting under the lock; the owner takes the whole list under the lock and
/// fires it outside. What it took stays in m_batch, so that a run from inside an event goes on
/// with it. No event is fired or disposed of with the lock held.
///
/// An owner that has run out of work doesn't sleep at once, because waking it costs the poster more
/// than most work does; docs/architecture.md tells how it rests.
class CCmEventQueue : public ICmEventQueue {
 public:
    CmInt32 PostEvent(ICmEvent* pEvent, CmInt32 lOption) override;
    CmInt32 SendEvent(ICmEvent* pEvent) override;

    /// Names the owner by its thread number. Before the queue is shared.
    void BindTo(CmUint32 dwThreadNumber) { m_dwOwner = dwThreadNumber; }

    /// Owner only: fires what is left of the batch and what waits at the moment of the call, but
    /// not what is posted while it runs. Adds how many events it fired to dwCount. If an event
    /// throws, it is disposed of, the exception passes on, and the rest waits for the next run.
    void RunWaiting(CmUint32& dwCount);

    using Clock = std::chrono::steady_clock;

    /// Owner only: sleeps until something waits, the queue is stopped or the time has come.
    /// Returns whether something waits. Behind work it stays awake for a moment, as waking a
    /// thread takes longer than most work does.
    bool WaitUntil(Clock::time_point aLimit);

    /// The same without a limit, and behind patient events with naps, from which patient events
    /// don't wake it: whoever posts them in a steady stream never pays for a waking.
    bool Wait();

    /// From now on events are refused. What is queued stays and can be run.
    void Stop();

    /// Disposes of everything queued without firing it. The owner, or any thread once the owner
    /// fires no more.
    void DropWaiting();

 protected:
    ~CCmEventQueue() override;

    /// Called outside the lock when an event came to wait where none did (on the posting thread),
    /// and when events are left behind by one that threw.
    virtual void OnStoppedBeingEmpty() {}

    /// Around a fork: nothing changes in between. In the child the queue is empty and nobody waits
    /// on it. Its events stay in memory: they hold what belongs to the parent, its files too.
    void BeforeFork() { m_mutex.lock(); }
    void AfterForkInParent() { m_mutex.unlock(); }
    void AfterForkInChild();

    /// Called under the lock when the queue (batch included) stops or starts being empty.
    virtual void OnHasEventsLocked(bool /*bHasEvents*/) {}

    std::mutex m_mutex;

    // Guarded by m_mutex.
    bool m_bHasEvents = false;  // anything in m_waiting or m_batch; what OnHasEventsLocked was told

 private:
    bool Append(ICmEvent* pEvent);
    void SetHasEventsLocked(bool bHasEvents);
    ICmEvent* PopBatch();
    void TakeWaiting();
    CmInt32 Fire(ICmEvent* pEvent);
    void Dispose(ICmEvent* pEvent, CmInt32 lResult);
    void Linger();
    void Nap(std::unique_lock<std::mutex>& aLock);
    bool IsNothingToDo() const { return m_waiting.IsEmpty() && !m_bStopped; }

    CmUint32 m_dwOwner = 0;  // set before the queue is shared

    std::atomic<bool> m_bNews{false};  // something waits, or has been stopped: a hint for Linger
    std::condition_variable m_wake;    // the owner sleeps on it
    std::condition_variable m_sent;    // senders sleep on it

    // Guarded by m_mutex.
    CCmEventList m_waiting;
    bool m_bStopped = false;
    /// How the owner rests, unless somebody has woken it already.
    enum Rest { Rest_None, Rest_Nap, Rest_Sleep } m_rest = Rest_None;

    // The owner's.
    CCmEventList m_batch;
    bool m_bRanPatient = false;  // since it last waited
    bool m_bRanOther = false;
};
