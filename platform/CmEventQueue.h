#pragma once

#include <condition_variable>
#include <mutex>

#include "platform/CmEventList.h"
#include "platform/CmQueueRest.h"

/// The event queue of one thread, its owner.
///
/// Counted; the owner's thread object and every poster hold references. Posters append to m_waiting
/// under the lock. The owner takes the whole list under the lock and fires it outside. What it took
/// stays in m_batch, so that a run from inside an event continues with it. No event is fired or
/// disposed of with the lock held. Only a stopped queue refuses events.
class CCmEventQueue : public ICmEventQueue {
 public:
    CmInt32 PostEvent(ICmEvent* pEvent, CmInt32 lOption) override;
    CmInt32 SendEvent(ICmEvent* pEvent) override;
    CmInt32 PostTimedEvent(ICmTimedEvent* pEvent) override;

    /// Sets the owner's thread number. Called before the queue is shared.
    void BindTo(CmUint32 dwThreadNumber) { m_dwOwner = dwThreadNumber; }

    /// Owner only: fires what is left of the batch and what waits at the moment of the call, but
    /// not what is posted while it runs. Adds how many results it fired to dwCount, and returns
    /// whether it fired anything but upkeep. If an event throws, it is disposed of, the exception
    /// propagates, and the rest waits for the next run.
    bool RunWaiting(CmUint32& dwCount);

    using Clock = CCmQueueRest::Clock;

    /// Owner only: waits until something is queued, the time of a timed event has come, or the
    /// queue is stopped; CCmQueueRest decides how. Returns whether something is queued.
    bool Wait();

    /// The same, but never naps and returns at aLimit at the latest: the host decides how long its
    /// thread may wait.
    bool WaitUntil(Clock::time_point aLimit);

    /// From now on events are refused. What is queued stays and can be run.
    void Stop();

    /// Disposes of everything queued without firing it. The owner, or any thread once the owner
    /// fires no more.
    void DropWaiting();

 protected:
    ~CCmEventQueue() override;

    /// Called outside the lock when an event is queued where none was (on the posting thread), and
    /// when an event has thrown and others are left.
    virtual void OnStoppedBeingEmpty() {}

    /// Called around a fork: nothing changes in between. In the child the queue is empty and nobody
    /// waits on it. Its events stay in memory: they hold what belongs to the parent, such as files.
    void BeforeFork() { m_mutex.lock(); }
    void AfterForkInParent() { m_mutex.unlock(); }
    void AfterForkInChild();

    /// Called under the lock when the queue (batch included) stops or starts being empty.
    virtual void OnHasEventsLocked(bool /*bHasEvents*/) {}

    std::mutex m_mutex;

    // Guarded by m_mutex.
    bool m_bHasEvents = false;  // m_waiting or m_batch has any; OnHasEventsLocked has it

 private:
    bool Append(ICmEvent* pEvent);
    void SetHasEventsLocked(bool bHasEvents);
    ICmEvent* PopBatch();
    void TakeWaiting();
    CmInt32 Fire(ICmEvent* pEvent);
    void Dispose(ICmEvent* pEvent, CmInt32 lResult);
    void QueueDueEvents();
    bool AppendTimed(ICmTimedEvent* pEvent);
    ICmTimedEvent* LinkTimed(ICmTimedEvent* pEvent);
    bool IsNothingToDo() const { return m_waiting.IsEmpty() && !m_bStopped; }

    CmUint32 m_dwOwner = 0;  // set before the queue is shared

    std::condition_variable m_sent;  // senders wait on it

    // Guarded by m_mutex.
    CCmEventList m_waiting;
    ICmTimedEvent* m_pTimed =
        nullptr;  // those whose time has not come, in the order of their times
    bool m_bStopped = false;
    CCmQueueRest m_rest;  // says itself where it needs no lock

    CCmEventList m_batch;  // the owner's
};
