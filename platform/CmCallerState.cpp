#include "platform/CmCallerState.h"

#include <new>

#include "platform/CmNeverDestroyed.h"
#include "platform/CmResult.h"
#include "platform/CmSystem.h"

CCmCallerState& CCmCallerState::Instance() { return CmNeverDestroyed<CCmCallerState>(); }

/// Registers the fork handlers before any lock is taken. Without memory for them forks are as safe
/// as the system makes them.
CCmCallerState::CCmCallerState() {
    CmRegisterForkHandlers([] { Instance().BeforeFork(); }, [] { Instance().AfterForkInParent(); },
                           [] { Instance().AfterForkInChild(); });
}

CmInt32 CCmCallerState::Attach() {
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
    // Without the lock: this waits for a running callable, and may destroy handlers.
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

/// Takes the locks in the order in which the library nests them: the state's, its thread's. The
/// queue's locks are never held together with either elsewhere.
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
            m_pCurrent->AddReference();  // never freed: this would run destructors of the host
            m_pCurrent = nullptr;
        }
    }
    m_mutex.UnLock();
}
