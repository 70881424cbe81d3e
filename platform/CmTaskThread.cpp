#include "platform/CmTaskThread.h"

#include <new>
#include <system_error>

#include "platform/CmResult.h"
#include "platform/CmSystem.h"

CCmTaskThread::CCmTaskThread(void (*pOnJoined)(CCmTaskThread* pThread))
    : CCmQueuedThread(CmNewThreadNumber()), m_pOnJoined(pOnJoined) {}

/// The thread is still joinable only if it called exit itself: a thread cannot wait for itself.
CCmTaskThread::~CCmTaskThread() {
    if (m_thread.joinable()) m_thread.detach();
}

CmInt32 CCmTaskThread::Start() {
    const CRefPtr<CCmEventQueue> pQueue(new (std::nothrow) CCmEventQueue);
    if (!pQueue) return CACHE_ERR_OUT_OF_MEMORY;
    SetQueue(pQueue.Get());
    // The new thread copies all that it uses, because it may run longer than this object exists.
    try {
        const CCmSignalBlocker aBlocker;
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
    CmSetCurrentThreadNumber(dwNumber);
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
        // The first caller waits for the thread with the lock held, and others wait for the lock.
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutexJoin);
        if (m_thread.joinable()) m_thread.join();
    }
    m_pOnJoined(this);
    return CACHE_OK;
}
