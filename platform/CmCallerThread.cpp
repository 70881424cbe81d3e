#include "platform/CmCallerThread.h"

#include <new>

#include "platform/CmFork.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmResult.h"
#include "platform/CmThreadObjects.h"

void CCmCallerQueue::SetWakeUp(CCmCallerThread::WakeUp aWakeUp) {
    m_wakeUp.Set(std::move(aWakeUp));
    bool bHasEvents = false;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        bHasEvents = m_bHasEvents;
    }
    if (bHasEvents) m_wakeUp.Call();
}

void CCmCallerQueue::End() {
    Stop();
    DropWakeUps();
    DropWaiting();
}

void CCmCallerQueue::DropWakeUps() {
    m_wakeUp.Set({});
    CloseDescriptor();
}

int CCmCallerQueue::GetDescriptor() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    if (!m_descriptor.IsOpen() && m_descriptor.Open() && m_bHasEvents) m_descriptor.Signal();
    return m_descriptor.GetDescriptor();
}

void CCmCallerQueue::CloseDescriptor() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    m_descriptor.Close();
}

void CCmCallerQueue::OnHasEventsLocked(bool bHasEvents) {
    if (!m_descriptor.IsOpen()) return;
    if (bHasEvents)
        m_descriptor.Signal();
    else
        m_descriptor.Clear();
}

CCmAttachedThread::CCmAttachedThread(CCmCallerQueue* pQueue)
    : CCmQueuedThread(CmCurrentThreadNumber()) {
    SetQueue(pQueue);
}

CmInt32 CCmAttachedThread::Stop(void* /*pTimeout*/) { return CACHE_ERR_INVALID_STATE; }

CmInt32 CCmAttachedThread::Join() { return CACHE_ERR_INVALID_STATE; }

CRefPtr<CCmCallerQueue> CCmAttachedThread::Detach() {
    return static_cast<CCmCallerQueue*>(TakeQueue().Get());
}

CRefPtr<CCmCallerQueue> CCmAttachedThread::GetCallerQueue() {
    return static_cast<CCmCallerQueue*>(GetEventQueue().Get());
}

CCmCallerState& CCmCallerState::Instance() { return CmNeverDestroyed<CCmCallerState>(); }

CmInt32 CCmCallerState::Attach() {
    CmWatchForks();
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    if (m_pCurrent) {
        if (!m_pCurrent->IsCurrent()) return CACHE_ERR_INVALID_STATE;
        ++m_dwNesting;
        return CACHE_OK;
    }
    const CRefPtr<CCmCallerQueue> pQueue(new (std::nothrow) CCmCallerQueue);
    if (!pQueue) return CACHE_ERR_OUT_OF_MEMORY;
    m_pCurrent = new (std::nothrow) CCmAttachedThread(pQueue.Get());
    if (!m_pCurrent) return CACHE_ERR_OUT_OF_MEMORY;
    m_dwNesting = 1;
    return CACHE_OK;
}

CmInt32 CCmCallerState::Detach() {
    CRefPtr<CCmCallerQueue> pQueue;
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        if (!m_pCurrent || !m_pCurrent->IsCurrent()) return CACHE_ERR_INVALID_STATE;
        if (--m_dwNesting > 0) return CACHE_OK;
        pQueue = m_pCurrent->Detach();
        m_pCurrent = nullptr;
    }
    pQueue->End();
    return CACHE_OK;
}

CRefPtr<CCmAttachedThread> CCmCallerState::GetThread() {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    return m_pCurrent;
}

CRefPtr<CCmCallerQueue> CCmCallerState::GetOwnQueue() {
    const CRefPtr<CCmAttachedThread> pThread = GetThread();
    if (!pThread || !pThread->IsCurrent()) return nullptr;
    return pThread->GetCallerQueue();
}

void CCmCallerState::DropWakeUps() {
    const CRefPtr<CCmAttachedThread> pThread = GetThread();
    const CRefPtr<CCmCallerQueue> pQueue = pThread ? pThread->GetCallerQueue() : nullptr;
    if (pQueue) pQueue->DropWakeUps();
}

void CCmCallerQueue::BeforeFork() {
    m_wakeUp.BeforeFork();
    CCmEventQueue::BeforeFork();
}

void CCmCallerQueue::AfterForkInParent() {
    CCmEventQueue::AfterForkInParent();
    m_wakeUp.AfterForkInParent();
}

void CCmCallerQueue::AfterForkInChild() {
    m_descriptor.Close();
    CCmEventQueue::AfterForkInChild();
    m_wakeUp.AfterForkInChild();
}

void CCmCallerState::BeforeFork() {
    m_mutex.Lock();
    if (!m_pCurrent) return;
    m_pForkedQueue = m_pCurrent->GetCallerQueue();
    m_pCurrent->BeforeFork();
    m_pForkedQueue->BeforeFork();
}

void CCmCallerState::AfterForkInParent() {
    if (m_pCurrent) {
        m_pForkedQueue->AfterForkInParent();
        m_pCurrent->AfterFork();
        m_pForkedQueue = nullptr;
    }
    m_mutex.UnLock();
}

void CCmCallerState::AfterForkInChild() {
    if (m_pCurrent) {
        m_pForkedQueue->AfterForkInChild();
        m_pCurrent->AfterFork();
        m_pForkedQueue = nullptr;
        if (!m_pCurrent->IsCurrent()) {
            m_pCurrent->AddReference();  // freeing it would run what the host gave to the parent
            m_pCurrent = nullptr;
        }
    }
    m_mutex.UnLock();
}

CmInt32 CCmCallerThread::Attach() { return CCmCallerState::Instance().Attach(); }

CmInt32 CCmCallerThread::Detach() { return CCmCallerState::Instance().Detach(); }

bool CCmCallerThread::IsCurrent() { return bool{CCmCallerState::Instance().GetOwnQueue()}; }

CmInt32 CCmCallerThread::RunPending(CmUint32* pdwCount) { return WaitAndRun(0, pdwCount); }

CmInt32 CCmCallerThread::WaitAndRun(CmUint32 dwMilliseconds, CmUint32* pdwCount) {
    if (pdwCount) *pdwCount = 0;
    const CRefPtr<CCmCallerQueue> pQueue = CCmCallerState::Instance().GetOwnQueue();
    if (!pQueue) return CACHE_ERR_INVALID_STATE;
    if (dwMilliseconds > 0)
        pQueue->WaitUntil(CCmEventQueue::Clock::now() + std::chrono::milliseconds(dwMilliseconds));
    CmUint32 dwIgnored = 0;
    pQueue->RunWaiting(pdwCount ? *pdwCount : dwIgnored);
    return CACHE_OK;
}

CmInt32 CCmCallerThread::SetWakeUp(WakeUp aWakeUp) {
    const CRefPtr<CCmCallerQueue> pQueue = CCmCallerState::Instance().GetOwnQueue();
    if (!pQueue) return CACHE_ERR_INVALID_STATE;
    try {
        pQueue->SetWakeUp(std::move(aWakeUp));
    } catch (const std::bad_alloc&) {
        return CACHE_ERR_OUT_OF_MEMORY;
    }
    return CACHE_OK;
}

CmInt32 CCmCallerThread::GetWakeDescriptor(int& nDescriptor) {
    nDescriptor = -1;
    const CRefPtr<CCmCallerQueue> pQueue = CCmCallerState::Instance().GetOwnQueue();
    if (!pQueue) return CACHE_ERR_INVALID_STATE;
    nDescriptor = pQueue->GetDescriptor();
    return nDescriptor >= 0 ? CACHE_OK : CACHE_ERR_FAILED;
}
