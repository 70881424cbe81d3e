#include "platform/CmEventQueue.h"

#include <new>
#include <thread>
#include <utility>

#include "platform/CmResult.h"
#include "platform/CmThreadNumber.h"

namespace {

constexpr std::chrono::microseconds c_linger{30};
constexpr std::chrono::milliseconds c_nap{2};

}  // namespace

/// Lies on the stack of a thread in SendEvent; guarded by the queue's mutex.
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

CmInt32 CCmEventQueue::SendEvent(ICmEvent* pEvent) {
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
        m_bNews.store(true, std::memory_order_relaxed);
        bWake = m_rest == Rest_Sleep || (m_rest == Rest_Nap && !pEvent->m_bPatient);
        if (bWake) m_rest = Rest_None;
        SetHasEventsLocked(true);
    }
    // The event may be gone by now; the queue isn't, the poster holds a reference.
    if (bWake) m_wake.notify_one();
    if (bFirst) OnStoppedBeingEmpty();
    return true;
}

void CCmEventQueue::SetHasEventsLocked(bool bHasEvents) {
    if (m_bHasEvents == bHasEvents) return;
    m_bHasEvents = bHasEvents;
    // From the destructor it reaches no derived queue, which has nobody left to tell.
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
    m_bNews.store(m_bStopped, std::memory_order_relaxed);
}

void CCmEventQueue::RunWaiting(CmUint32& dwCount) {
    const CRefPtr<CCmEventQueue> pSelf(this);  // an event may detach the thread
    TakeWaiting();
    try {
        while (ICmEvent* const pEvent = PopBatch()) {
            ++dwCount;
            Fire(pEvent);
        }
    } catch (...) {
        if (!m_batch.IsEmpty()) OnStoppedBeingEmpty();
        throw;
    }
}

CmInt32 CCmEventQueue::Fire(ICmEvent* pEvent) {
    struct Disposal {
        ~Disposal() { m_queue.Dispose(m_pEvent, m_lResult); }
        CCmEventQueue& m_queue;
        ICmEvent* const m_pEvent;
        CmInt32 m_lResult;
    } aDisposal{*this, pEvent, CACHE_ERR_FAILED};
    (pEvent->m_bPatient ? m_bRanPatient : m_bRanOther) = true;
    aDisposal.m_lResult = pEvent->OnEventFire();
    return aDisposal.m_lResult;
}

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

/// Stays awake for a moment if there was work for which somebody may have waited: the next of its
/// kind often follows. Gives way to other threads all the while.
void CCmEventQueue::Linger() {
    if (!std::exchange(m_bRanOther, false)) return;
    const Clock::time_point aLimit = Clock::now() + c_linger;
    while (!m_bNews.load(std::memory_order_relaxed) && Clock::now() < aLimit)
        std::this_thread::yield();
}

/// Sleeps for some milliseconds at a time, until one has passed without an event.
void CCmEventQueue::Nap(std::unique_lock<std::mutex>& aLock) {
    m_rest = Rest_Nap;
    const Clock::time_point aLimit = Clock::now() + c_nap;
    while (m_rest == Rest_Nap)
        if (m_wake.wait_until(aLock, aLimit) == std::cv_status::timeout) break;
    m_rest = Rest_None;
}

bool CCmEventQueue::Wait() {
    if (!m_batch.IsEmpty()) return true;
    Linger();
    std::unique_lock<std::mutex> aLock(m_mutex);
    if (std::exchange(m_bRanPatient, false) && IsNothingToDo()) Nap(aLock);
    while (IsNothingToDo()) {
        m_rest = Rest_Sleep;
        m_wake.wait(aLock);
    }
    m_rest = Rest_None;
    return !m_waiting.IsEmpty();
}

bool CCmEventQueue::WaitUntil(Clock::time_point aLimit) {
    if (!m_batch.IsEmpty()) return true;
    Linger();
    std::unique_lock<std::mutex> aLock(m_mutex);
    while (IsNothingToDo()) {
        m_rest = Rest_Sleep;
        if (m_wake.wait_until(aLock, aLimit) == std::cv_status::timeout) break;
    }
    m_rest = Rest_None;
    return !m_waiting.IsEmpty();
}

void CCmEventQueue::Stop() {
    bool bWake = false;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        m_bStopped = true;
        m_bNews.store(true, std::memory_order_relaxed);
        bWake = m_rest != Rest_None;
        m_rest = Rest_None;
    }
    if (bWake) m_wake.notify_one();
}

void CCmEventQueue::AfterForkInChild() {
    m_waiting = m_batch = CCmEventList();
    m_bHasEvents = false;
    m_rest = Rest_None;
    m_bNews.store(m_bStopped, std::memory_order_relaxed);
    new (&m_wake) std::condition_variable;  // destroying them would wait for their waiters
    new (&m_sent) std::condition_variable;
    m_mutex.unlock();
}

void CCmEventQueue::DropWaiting() {
    TakeWaiting();
    while (ICmEvent* const pEvent = PopBatch()) Dispose(pEvent, CACHE_ERR_INVALID_STATE);
}
