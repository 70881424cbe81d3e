#include "platform/CmThread.h"

#include <atomic>
#include <new>
#include <system_error>

#include "platform/CmNeverDestroyed.h"
#include "platform/CmResult.h"
#include "platform/CmThreadObjects.h"
#include "platform/CmTrace.h"

namespace {

std::atomic<CmUint32> s_dwLastNumber{0};
thread_local CmUint32 t_dwNumber = 0;

CmUint32 NewThreadNumber() { return s_dwLastNumber.fetch_add(1, std::memory_order_relaxed) + 1; }

}  // namespace

CmUint32 CmCurrentThreadNumber() {
    if (t_dwNumber == 0) t_dwNumber = NewThreadNumber();
    return t_dwNumber;
}

CRefPtr<ICmEventQueue> CCmQueuedThread::GetEventQueue() {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    return m_pQueue.Get();
}

void CCmQueuedThread::SetQueue(CCmEventQueue* pQueue) {
    pQueue->BindTo(m_dwNumber);
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    m_pQueue = pQueue;
}

CRefPtr<CCmEventQueue> CCmQueuedThread::TakeQueue() {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    return std::move(m_pQueue);
}

CCmTaskThread::CCmTaskThread() : CCmQueuedThread(NewThreadNumber()) {}

/// Only a thread that lets the process exit is still joinable here: it can't wait for itself.
CCmTaskThread::~CCmTaskThread() {
    if (m_thread.joinable()) m_thread.detach();
}

CmInt32 CCmTaskThread::Start() {
    const CRefPtr<CCmEventQueue> pQueue(new (std::nothrow) CCmEventQueue);
    if (!pQueue) return CACHE_ERR_OUT_OF_MEMORY;
    SetQueue(pQueue.Get());
    try {
        const CCmSignalShield aShield;
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutexJoin);
        m_thread = std::thread([dwNumber = m_dwNumber, pQueue] { Run(dwNumber, *pQueue); });
    } catch (const std::bad_alloc&) {
        TakeQueue();
        return CACHE_ERR_OUT_OF_MEMORY;
    } catch (const std::system_error&) {
        TakeQueue();
        return CACHE_ERR_FAILED;
    }
    return CACHE_OK;
}

void CCmTaskThread::Run(CmUint32 dwNumber, CCmEventQueue& aQueue) {
    t_dwNumber = dwNumber;
    CmUint32 dwRun = 0;
    while (aQueue.Wait()) aQueue.RunWaiting(dwRun);
}

CmInt32 CCmTaskThread::Stop(void* /*pTimeout*/) {
    const CRefPtr<CCmEventQueue> pQueue = TakeQueue();
    if (pQueue) pQueue->Stop();
    return CACHE_OK;
}

CmInt32 CCmTaskThread::Join() {
    if (IsCurrent()) return CACHE_ERR_INVALID_STATE;
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutexJoin);
        if (m_thread.joinable()) m_thread.join();
    }
    CCmThreadManager::Instance()->ForgetJoined(this);
    return CACHE_OK;
}

CCmThreadManager* CCmThreadManager::Instance() { return &CmNeverDestroyed<CCmThreadManager>(); }

CmInt32 CCmThreadManager::CreateUserTaskThread(CRefPtr<ACmThread>& pThread, TFlag /*aFlag*/,
                                               int /*nPriority*/, int /*nStack*/) {
    pThread = nullptr;
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    if (m_bExiting) return CACHE_ERR_INVALID_STATE;
    if (!m_bExitHandler) m_bExitHandler = CmRegisterExitHandler(&CCmThreadManager::OnProcessExit);
    const CRefPtr<CCmTaskThread> pNew(new (std::nothrow) CCmTaskThread);
    if (!pNew) return CACHE_ERR_OUT_OF_MEMORY;
    const CmInt32 lResult = pNew->Start();
    if (lResult != CACHE_OK) return lResult;
    pNew->m_pEarlier = std::move(m_pTaskThreads);
    m_pTaskThreads = pNew;
    pThread = pNew.Get();
    return CACHE_OK;
}

CRefPtr<ACmThread> CCmThreadManager::GetThread(CmInt32 lType) {
    if (lType != Thread_Caller) return nullptr;
    return CCmCallerState::Instance().GetThread().Get();
}

void CCmThreadManager::ForgetJoined(CCmTaskThread* pThread) {
    CRefPtr<CCmTaskThread> pForgotten;  // freed after the lock
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    CRefPtr<CCmTaskThread>* pLink = &m_pTaskThreads;
    while (*pLink && pLink->Get() != pThread) pLink = &(*pLink)->m_pEarlier;
    if (!*pLink) return;
    pForgotten = std::move(*pLink);
    *pLink = std::move(pForgotten->m_pEarlier);
}

/// The host may have forgotten to shut down: what was accepted is still written. What belongs to
/// the host (sink, callable, loop) may be destroyed already, so it is not used any more.
void CCmThreadManager::OnProcessExit() {
    if (CmIsForkedChild()) return;
    CCmT120Trace::instance()->SetSink({});
    CCmCallerState::Instance().DropWakeUps();
    Instance()->StopAllForExit();
}

void CCmThreadManager::StopAllForExit() {
    CRefPtr<CCmTaskThread> pThread;
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        m_bExiting = true;
        pThread = std::move(m_pTaskThreads);
    }
    for (; pThread; pThread = pThread->m_pEarlier) {
        pThread->Stop(nullptr);
        pThread->Join();
    }
}
