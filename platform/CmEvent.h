#pragma once

#include <chrono>
#include <cstdint>

#include "platform/CmReference.h"
#include "platform/CmTypes.h"

/// A piece of work for the thread of an event queue.
///
/// Made with new by the code that posts it. From then on the queue owns it, and disposes of it
/// exactly once: after firing, refusing or dropping it. It is linked into the queue through its own
/// fields, so posting takes no memory.
class ICmEvent {
 public:
    /// Whether anybody may be waiting for the outcome. A thread that has just had work may leave a
    /// non-urgent event for a few milliseconds until it looks again (CmQueueRest.h).
    enum Urgency { Urgent, NotUrgent };

    /// What a host notices of an event in its queue (CmCallerThread.h). A result is counted. A
    /// wake-up is not counted and only ends the host's wait. Upkeep does neither.
    enum Kind { Result, WakeUp, Upkeep };

    /// dwType is the platform's; events of this library pass 0.
    explicit ICmEvent(CmUint32 dwType, Urgency aUrgency = Urgent, Kind aKind = Result)
        : m_dwType(dwType), m_urgency(aUrgency), m_kind(aKind) {}

    /// Does the work, on the queue's thread. Its result reaches the caller of SendEvent only.
    virtual CmInt32 OnEventFire() = 0;

    /// Disposal after firing; deletes the event. Never overridden.
    virtual void OnDestorySelf();

    virtual ~ICmEvent();

    ICmEvent(const ICmEvent&) = delete;
    ICmEvent& operator=(const ICmEvent&) = delete;

    CmUint32 GetType() const { return m_dwType; }
    Urgency GetUrgency() const { return m_urgency; }
    Kind GetKind() const { return m_kind; }

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

/// Upkeep that a thread does at a given time or soon afterwards. A queue keeps one event of each
/// key: the one with the highest number. It disposes of the others without firing them.
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

/// The queue through which a thread is given work. Counted; hold it in a CRefPtr while using it.
/// Any thread may post and send.
class ICmEventQueue : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// Queues the event to be fired later on the queue's thread, after everything queued before
    /// it. Never waits. Returns 0; on a stopped queue the event is disposed of and the result is
    /// CACHE_ERR_INVALID_STATE. lOption is the platform's; this library passes 1.
    virtual CmInt32 PostEvent(ICmEvent* pEvent, CmInt32 lOption) = 0;

    /// Fires the event on the queue's thread after everything queued before it, waits until it
    /// has been disposed of, and returns the result of its OnEventFire. On the queue's own thread
    /// it fires at once. On a stopped queue the event is disposed of and the result is
    /// CACHE_ERR_INVALID_STATE, without waiting.
    virtual CmInt32 SendEvent(ICmEvent* pEvent) = 0;

    /// Fires the event on the queue's thread when its time has come, if the library runs that
    /// thread. An event whose time has not come when the thread ends is disposed of without firing,
    /// and so is one that another event of its key replaces. Result and ownership are those of
    /// PostEvent.
    virtual CmInt32 PostTimedEvent(ICmTimedEvent* pEvent) = 0;
};
