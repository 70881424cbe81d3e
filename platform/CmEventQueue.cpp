#include "platform/CmEventQueue.h"

#include <new>
#include <utility>

#include "platform/CmResult.h"
#include "platform/CmThreadNumber.h"

/// How a thread in SendEvent waits. It is on the stack of that thread; the queue's mutex guards it.
struct ICmEvent::tagSendWait {
    CmInt32 m_lResult = CACHE_OK;
    bool m_bDone = false;
};

CCmEventQueue::~CCmEventQueue() { DropWaiting(); }

CmInt32 CCmEventQueue::PostEvent(ICmEvent* pEvent, CmInt32 /*lOption*/) {
    if (Append(pEvent)) return CACHE_OK;
    pEvent->OnDestorySelf();
    return CACHE_ERR_INVALID_STATE;
}

CmInt32 CCmEventQueue::PostTimedEvent(ICmTimedEvent* pEvent) {
    if (AppendTimed(pEvent)) return CACHE_OK;
    pEvent->OnDestorySelf();
    return CACHE_ERR_INVALID_STATE;
}

/// Wakes a sleeping owner if it has to wake up earlier now.
bool CCmEventQueue::AppendTimed(ICmTimedEvent* pEvent) {
    bool bWake = false;
    ICmTimedEvent* pReplaced = nullptr;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        if (m_bStopped) return false;
        pReplaced = LinkTimed(pEvent);
        bWake = m_pTimed == pEvent && m_rest.EndWait(ICmEvent::NotUrgent);
    }
    if (bWake) m_rest.Wake();
    if (pReplaced) pReplaced->OnDestorySelf();
    return true;
}

/// Inserts the event by its time, unless there is one of its key with a higher number. Returns the
/// one that has to be disposed of, or null. There are few timed events, one for each thread that
/// waits for a time, so the list is searched. With the lock.
ICmTimedEvent* CCmEventQueue::LinkTimed(ICmTimedEvent* pEvent) {
    ICmTimedEvent** pp = &m_pTimed;
    while (*pp && (*pp)->m_pKey != pEvent->m_pKey) pp = &(*pp)->m_pLater;
    ICmTimedEvent* const pSame = *pp;
    if (pSame && pSame->m_qwNumber > pEvent->m_qwNumber) return pEvent;
    if (pSame) *pp = pSame->m_pLater;
    pp = &m_pTimed;
    while (*pp && (*pp)->m_time <= pEvent->m_time) pp = &(*pp)->m_pLater;
    pEvent->m_pLater = *pp;
    *pp = pEvent;
    return pSame;
}

/// Moves the timed events whose time has come to those that wait. With the lock.
void CCmEventQueue::QueueDueEvents() {
    if (!m_pTimed) return;
    const Clock::time_point aNow = Clock::now();
    while (m_pTimed && m_pTimed->m_time <= aNow) {
        ICmTimedEvent* const pEvent = m_pTimed;
        m_pTimed = pEvent->m_pLater;
        m_waiting.PushBack(pEvent);
        SetHasEventsLocked(true);
    }
}

CmInt32 CCmEventQueue::SendEvent(ICmEvent* pEvent) {
    // The owner would wait for itself.
    if (m_dwOwner == CmCurrentThreadNumber()) return Fire(pEvent);
    ICmEvent::tagSendWait aWait;
    pEvent->m_pSender = &aWait;
    if (!Append(pEvent)) {
        pEvent->OnDestorySelf();
        return CACHE_ERR_INVALID_STATE;
    }
    std::unique_lock<std::mutex> aLock(m_mutex);
    m_sent.wait(aLock, [&] { return aWait.m_bDone; });
    return aWait.m_lResult;
}

bool CCmEventQueue::Append(ICmEvent* pEvent) {
    bool bFirst = false;
    bool bWake = false;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        if (m_bStopped) return false;
        bFirst = m_waiting.IsEmpty();
        m_waiting.PushBack(pEvent);
        m_rest.SetHasWork(true);
        bWake = m_rest.EndWait(pEvent->GetUrgency());
        SetHasEventsLocked(true);
    }
    // The event may have been disposed of by now, but not the queue: the poster holds a reference.
    if (bWake) m_rest.Wake();
    if (bFirst) OnStoppedBeingEmpty();
    return true;
}

void CCmEventQueue::SetHasEventsLocked(bool bHasEvents) {
    if (m_bHasEvents == bHasEvents) return;
    m_bHasEvents = bHasEvents;
    // Called from the destructor it runs the empty version of this class, which is intended.
    // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.VirtualCall)
    OnHasEventsLocked(bHasEvents);
}

ICmEvent* CCmEventQueue::PopBatch() {
    ICmEvent* const pEvent = m_batch.PopFront();
    if (pEvent && m_batch.IsEmpty()) {
        std::lock_guard<std::mutex> aLock(m_mutex);
        SetHasEventsLocked(!m_waiting.IsEmpty());
    }
    return pEvent;
}

void CCmEventQueue::TakeWaiting() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    m_batch.TakeAll(m_waiting);
    m_rest.SetHasWork(m_bStopped);
}

bool CCmEventQueue::RunWaiting(CmUint32& dwCount) {
    // An event may detach the thread, which drops the last other reference on the queue.
    const CRefPtr<CCmEventQueue> pSelf(this);
    TakeWaiting();
    bool bNoticed = false;
    try {
        while (ICmEvent* const pEvent = PopBatch()) {
            const ICmEvent::Kind aKind = pEvent->GetKind();
            dwCount += aKind == ICmEvent::Result ? 1 : 0;
            bNoticed |= aKind != ICmEvent::Upkeep;
            Fire(pEvent);
        }
    } catch (...) {
        if (!m_batch.IsEmpty()) OnStoppedBeingEmpty();
        throw;
    }
    return bNoticed;
}

/// Disposes of the event after firing, also if it throws.
CmInt32 CCmEventQueue::Fire(ICmEvent* pEvent) {
    struct Disposal {
        ~Disposal() { m_queue.Dispose(m_pEvent, m_lResult); }
        CCmEventQueue& m_queue;
        ICmEvent* const m_pEvent;
        CmInt32 m_lResult;
    } aDisposal{*this, pEvent, CACHE_ERR_FAILED};
    m_rest.OnFire(pEvent->GetUrgency());
    aDisposal.m_lResult = pEvent->OnEventFire();
    return aDisposal.m_lResult;
}

/// Wakes the sender after the disposal, because the event may refer to variables of the sender.
void CCmEventQueue::Dispose(ICmEvent* pEvent, CmInt32 lResult) {
    ICmEvent::tagSendWait* const pSender = pEvent->m_pSender;
    pEvent->OnDestorySelf();
    if (!pSender) return;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        pSender->m_lResult = lResult;
        pSender->m_bDone = true;
    }
    m_sent.notify_all();
}

bool CCmEventQueue::Wait() {
    if (!m_batch.IsEmpty()) return true;
    m_rest.Poll();
    std::unique_lock<std::mutex> aLock(m_mutex);
    if (m_rest.TakeFiredNotUrgent() && IsNothingToDo()) m_rest.SleepBriefly(aLock);
    for (QueueDueEvents(); IsNothingToDo(); QueueDueEvents()) {
        if (m_pTimed)
            m_rest.SleepUntil(aLock, m_pTimed->m_time);
        else
            m_rest.Sleep(aLock);
    }
    return !m_waiting.IsEmpty();
}

bool CCmEventQueue::WaitUntil(Clock::time_point aLimit) {
    if (!m_batch.IsEmpty()) return true;
    m_rest.Poll();
    std::unique_lock<std::mutex> aLock(m_mutex);
    while (IsNothingToDo() && m_rest.SleepUntil(aLock, aLimit)) {
    }
    return !m_waiting.IsEmpty();
}

void CCmEventQueue::Stop() {
    bool bWake = false;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        m_bStopped = true;
        m_rest.SetHasWork(true);
        bWake = m_rest.EndWait(ICmEvent::Urgent);
    }
    if (bWake) m_rest.Wake();
}

void CCmEventQueue::AfterForkInChild() {
    m_waiting = m_batch = CCmEventList();
    m_bHasEvents = false;
    m_rest.SetHasWork(m_bStopped);
    m_rest.AfterForkInChild();
    new (&m_sent) std::condition_variable;  // destroying it would wait for its waiters
    m_mutex.unlock();
}

void CCmEventQueue::DropWaiting() {
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        for (ICmTimedEvent* p = std::exchange(m_pTimed, nullptr); p;) {
            ICmTimedEvent* const pLater = p->m_pLater;
            m_waiting.PushBack(p);
            p = pLater;
        }
    }
    TakeWaiting();
    while (ICmEvent* const pEvent = PopBatch()) Dispose(pEvent, CACHE_ERR_INVALID_STATE);
}
