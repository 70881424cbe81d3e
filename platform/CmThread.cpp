#include "platform/CmThread.h"

#include <atomic>
#include <new>
#include <system_error>

#include "platform/CmImmortal.h"
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

CCmTaskThread::CCmTaskThread(CCmTaskThread* pEarlier)
    : CCmQueuedThread(NewThreadNumber()), m_pEarlier(pEarlier) {}

CmInt32 CCmTaskThread::Start() {
    const CRefPtr<CCmEventQueue> pQueue(new (std::nothrow) CCmEventQueue);
    if (!pQueue) return CACHE_ERR_OUT_OF_MEMORY;
    SetQueue(pQueue.Get());
    try {
        const CCmSignalShield aShield;
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutexJoin);
        m_thread = std::thread([this, pQueue] { Run(pQueue); });
    } catch (const std::bad_alloc&) {
        TakeQueue();
        return CACHE_ERR_OUT_OF_MEMORY;
    } catch (const std::system_error&) {
        TakeQueue();
        return CACHE_ERR_FAILED;
    }
    return CACHE_OK;
}

void CCmTaskThread::Run(const CRefPtr<CCmEventQueue>& pQueue) {
    t_dwNumber = m_dwNumber;
    CmUint32 dwRun = 0;
    while (pQueue->Wait()) pQueue->RunWaiting(dwRun);
}

CmInt32 CCmTaskThread::Stop(void* /*pTimeout*/) {
    const CRefPtr<CCmEventQueue> pQueue = TakeQueue();
    if (pQueue) pQueue->Stop();
    return CACHE_OK;
}

CmInt32 CCmTaskThread::Join() {
    if (IsCurrent()) return CACHE_ERR_INVALID_STATE;
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutexJoin);
    if (m_thread.joinable()) m_thread.join();
    return CACHE_OK;
}

CCmThreadManager* CCmThreadManager::Instance() { return &CmImmortal<CCmThreadManager>(); }

CmInt32 CCmThreadManager::CreateUserTaskThread(ACmThread*& pThread, TFlag /*aFlag*/,
                                               int /*nPriority*/, int /*nStack*/) {
    pThread = nullptr;
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    if (m_bExiting) return CACHE_ERR_INVALID_STATE;
    if (!m_bExitHandler) m_bExitHandler = CmRegisterExitHandler(&CCmThreadManager::OnProcessExit);
    CCmTaskThread* const pNew = new (std::nothrow) CCmTaskThread(m_pTaskThreads);
    if (!pNew) return CACHE_ERR_OUT_OF_MEMORY;
    const CmInt32 lResult = pNew->Start();
    if (lResult != CACHE_OK) {
        delete pNew;
        return lResult;
    }
    pThread = m_pTaskThreads = pNew;
    return CACHE_OK;
}

ACmThread* CCmThreadManager::GetThread(CmInt32 lType) {
    return lType == Thread_Caller ? CCmCallerState::Instance().GetThread() : nullptr;
}

/// The host may have forgotten to shut down: what it was told is accepted is still written. What
/// belongs to the host (sink, callable, loop) may be gone, so nothing of it is used any more.
void CCmThreadManager::OnProcessExit() {
    CCmT120Trace::instance()->SetSink({});
    CCmCallerState::Instance().DropWakeUps();
    Instance()->StopAllForExit();
}

void CCmThreadManager::StopAllForExit() {
    CCmTaskThread* pThread = nullptr;
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        m_bExiting = true;
        pThread = m_pTaskThreads;
    }
    for (; pThread; pThread = pThread->m_pEarlier) {
        pThread->Stop(nullptr);
        pThread->Join();
    }
}
