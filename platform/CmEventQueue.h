#pragma once

#include <condition_variable>
#include <mutex>

#include "platform/CmEventList.h"
#include "platform/CmQueueRest.h"

/// The event queue of one thread, its owner.
///
/// Reference-counted: the owner's thread object and every poster hold references. Posters append to
/// m_waiting with the lock held. The owner takes the whole list with the lock held and fires its
/// events without the lock. The events that it took stay in m_batch, so that a run from inside an
/// event continues with them. No event is disposed of with the lock held. Only a stopped queue
/// refuses events.
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

    /// The same, but it never sleeps past an event of any urgency, and returns at aLimit at the
    /// latest: the host decides how long its thread may wait.
    bool WaitUntil(Clock::time_point aLimit);

    /// From now on events are refused. What is queued stays and can be run.
    void Stop();

    /// Disposes of everything queued without firing it. Called by the owner, or by any thread after
    /// the owner has fired its last event.
    void DropWaiting();

 protected:
    ~CCmEventQueue() override;

    /// Called outside the lock when an event is queued where none was (on the posting thread), and
    /// when an event has thrown and others are left.
    virtual void OnStoppedBeingEmpty() {}

    /// Called before and after a fork. The queue does not change in between. In the child it is
    /// empty, and no thread waits on it. Its events are not freed, because they hold objects of the
    /// parent, such as files.
    void BeforeFork() { m_mutex.lock(); }
    void AfterForkInParent() { m_mutex.unlock(); }
    void AfterForkInChild();

    /// Called under the lock when the queue (batch included) stops or starts being empty.
    virtual void OnHasEventsLocked(bool /*bHasEvents*/) {}

    std::mutex m_mutex;

    // Guarded by m_mutex.
    bool m_bHasEvents = false;  // m_waiting or m_batch has any

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
    ICmTimedEvent* m_pTimed = nullptr;  // the first one whose time has not come, linked by time
    bool m_bStopped = false;
    CCmQueueRest m_rest;  // some of its methods are called without the mutex

    CCmEventList m_batch;  // used only by the owner
};
