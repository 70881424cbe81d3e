#pragma once

#include <chrono>
#include <cstdint>

#include "platform/CmReference.h"
#include "platform/CmTypes.h"

/// A piece of work for the thread of an event queue.
///
/// The code that posts it creates it with new. After that the queue owns it and frees it exactly
/// once: after it ran, when it is refused, or when the queue ends first. It has the link fields of
/// the queue, so posting allocates no memory.
class ICmEvent {
 public:
    /// Whether a thread may be waiting for the result. A non-urgent event does not wake a thread
    /// that had work recently: the thread checks its queue again after a few milliseconds
    /// (CmQueueRest.h).
    enum Urgency { Urgent, NotUrgent };

    /// How an event affects a host's queue (CmCallerThread.h). A result ends the host's wait and is
    /// counted. A wake-up ends the wait and is not counted. Upkeep does neither.
    enum Kind { Result, WakeUp, Upkeep };

    /// dwType has no meaning in this library, whose events pass 0.
    explicit ICmEvent(CmUint32 dwType, Urgency aUrgency = Urgent, Kind aKind = Result)
        : m_dwType(dwType), m_urgency(aUrgency), m_kind(aKind) {}

    /// Does the work, on the queue's thread. Only SendEvent uses the result.
    virtual CmInt32 OnEventFire() = 0;

    /// Deletes the event. Never overridden.
    virtual void OnDestorySelf();

    virtual ~ICmEvent();

    ICmEvent(const ICmEvent&) = delete;
    ICmEvent& operator=(const ICmEvent&) = delete;

    CmUint32 GetType() const { return m_dwType; }
    Urgency GetUrgency() const { return m_urgency; }
    Kind GetKind() const { return m_kind; }

 protected:
    /// The event that fires after this one, or null if it is not known yet. Valid on the queue's
    /// thread from the start of OnEventFire until that runs the queue again.
    ICmEvent* GetFollowing() const { return m_pNext; }

 private:
    friend class CCmEventList;
    friend class CCmEventQueue;
    struct tagSendWait;

    const CmUint32 m_dwType;
    const Urgency m_urgency;
    const Kind m_kind;
    ICmEvent* m_pNext = nullptr;       // the next event in its list
    tagSendWait* m_pSender = nullptr;  // the thread that waits for it in SendEvent
};

/// Work that a thread does at a given time or soon afterwards. A queue keeps one event of each key:
/// the one with the highest number. It frees the others, and they do not run.
class ICmTimedEvent : public ICmEvent {
 public:
    using Time = std::chrono::steady_clock::time_point;

    ICmTimedEvent(Time aTime, const void* pKey, std::uint64_t qwNumber)
        : ICmEvent(0, NotUrgent, Upkeep), m_time(aTime), m_pKey(pKey), m_qwNumber(qwNumber) {}

 private:
    friend class CCmEventQueue;

    const Time m_time;
    const void* const m_pKey;
    const std::uint64_t m_qwNumber;
    ICmTimedEvent* m_pLater = nullptr;  // the next one in its queue
};

/// The queue of a thread's work. Counted: hold it in a CRefPtr while using it. Any thread may post
/// and send.
class ICmEventQueue : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// Queues the event. It runs on the queue's thread after everything that was queued before.
    /// Never waits. Returns 0. If the queue is stopped, frees the event and returns
    /// CACHE_ERR_INVALID_STATE. lOption has no meaning in this library, which passes 1.
    virtual CmInt32 PostEvent(ICmEvent* pEvent, CmInt32 lOption) = 0;

    /// Runs the event on the queue's thread after everything that was queued before, waits until
    /// the event is freed, and returns the result of its OnEventFire. On the queue's own thread the
    /// event runs immediately. If the queue is stopped, frees the event and returns
    /// CACHE_ERR_INVALID_STATE without waiting.
    virtual CmInt32 SendEvent(ICmEvent* pEvent) = 0;

    /// Runs the event on the queue's thread at its time, if the library runs that thread. The event
    /// is freed and does not run if the thread ends before that time, or if another event of its
    /// key replaces it. Result and ownership are those of PostEvent.
    virtual CmInt32 PostTimedEvent(ICmTimedEvent* pEvent) = 0;
};
