#include "platform/CmQueuedThread.h"

CRefPtr<ICmEventQueue> CCmQueuedThread::GetEventQueue() {
    return m_bHasQueue.load(std::memory_order_acquire) ? m_pQueue.Get() : nullptr;
}

void CCmQueuedThread::SetQueue(CCmEventQueue* pQueue) {
    pQueue->BindTo(m_dwNumber);
    m_pQueue = pQueue;
    m_bHasQueue.store(true, std::memory_order_release);
}

CRefPtr<CCmEventQueue> CCmQueuedThread::TakeQueue() {
    return m_bHasQueue.exchange(false, std::memory_order_acq_rel) ? m_pQueue : nullptr;
}
