#pragma once

#include "platform/CmReference.h"
#include "platform/CmTypes.h"

/// A piece of work for the thread of an event queue.
///
/// Made with new by whoever posts it, owned by the queue from the moment it is given to it: fired,
/// refused or dropped, the queue disposes of it exactly once. It is linked into the queue through
/// its own fields, so posting takes no memory.
class ICmEvent {
 public:
    /// dwType is the platform's; events of this library pass 0.
    explicit ICmEvent(CmUint32 dwType) : m_dwType(dwType) {}

    /// Does the work, on the queue's thread. Its result reaches the caller of SendEvent only.
    virtual CmInt32 OnEventFire() = 0;

    /// Disposal after firing; deletes the event. Never overridden.
    virtual void OnDestorySelf();

    virtual ~ICmEvent();

    ICmEvent(const ICmEvent&) = delete;
    ICmEvent& operator=(const ICmEvent&) = delete;

    CmUint32 GetType() const { return m_dwType; }

 protected:
    /// For constructors: nobody waits for this event's outcome, so that a thread which has just
    /// been at work may leave it for a few milliseconds until it looks again.
    void BePatient() { m_bPatient = true; }

 private:
    friend class CCmEventList;
    friend class CCmEventQueue;
    struct tagSendWait;

    const CmUint32 m_dwType;
    bool m_bPatient = false;
    ICmEvent* m_pNext = nullptr;       // the event behind it in its list
    tagSendWait* m_pSender = nullptr;  // who waits for it in SendEvent
};

/// The queue through which a thread is given work. Counted; hold it in a CRefPtr while using it.
/// Any thread may post and send.
class ICmEventQueue : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// Queues the event to be fired later on the queue's thread, behind everything queued before
    /// it. Never waits. Returns 0; on a stopped queue the event is disposed of and the result is
    /// CACHE_ERR_INVALID_STATE. lOption is the platform's; this library passes 1.
    virtual CmInt32 PostEvent(ICmEvent* pEvent, CmInt32 lOption) = 0;

    /// Fires the event on the queue's thread behind everything queued before it, waits until it
    /// has been disposed of, and returns the result of its OnEventFire. On the queue's own thread
    /// it fires at once. On a stopped queue the event is disposed of and the result is
    /// CACHE_ERR_INVALID_STATE, without waiting.
    virtual CmInt32 SendEvent(ICmEvent* pEvent) = 0;
};
