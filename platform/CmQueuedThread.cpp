#include "platform/CmQueuedThread.h"

#include <utility>

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
