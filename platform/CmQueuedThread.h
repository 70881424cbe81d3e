#pragma once

#include "platform/CmEventQueue.h"
#include "platform/CmThread.h"
#include "platform/CmThreadNumber.h"

/// The base of both kinds of thread objects: a number, and a queue that can be removed. Events in
/// the queue hold references to the thread object, through the proxy of their file. Removing the
/// queue ends this circle of references.
///
/// Any thread may call it: the number is constant, and the mutex guards the queue.
class CCmQueuedThread : public ACmThread {
 public:
    CRefPtr<ICmEventQueue> GetEventQueue() override;
    bool IsCurrent() const override { return CmCurrentThreadNumber() == m_dwNumber; }

    /// Called before and after a fork. The queue is not removed in between.
    void BeforeFork() CM_ACQUIRE(m_mutex) { m_mutex.Lock(); }
    void AfterFork() CM_RELEASE(m_mutex) { m_mutex.UnLock(); }

 protected:
    explicit CCmQueuedThread(CmUint32 dwNumber) : m_dwNumber(dwNumber) {}

    void SetQueue(CCmEventQueue* pQueue);

    /// Removes the queue and returns it; null if it was removed before.
    CRefPtr<CCmEventQueue> TakeQueue();

    const CmUint32 m_dwNumber;

 private:
    CCmMutexThread m_mutex;
    CRefPtr<CCmEventQueue> m_pQueue CM_GUARDED_BY(m_mutex);  // null once stopped or detached
};
