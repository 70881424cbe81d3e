#pragma once

#include <thread>

#include "platform/CmQueuedThread.h"

/// A thread of the library. It runs the events of its queue until it is stopped and the queue is
/// empty.
///
/// Counted: the thread manager and the files that use the thread hold references. Any thread may
/// call it, because a mutex guards m_thread. The running thread does not use this object, so the
/// object may be freed before the thread has ended.
class CCmTaskThread final : public CCmQueuedThread {
 public:
    /// pOnJoined is called, with no lock held, after each Join that has waited.
    explicit CCmTaskThread(void (*pOnJoined)(CCmTaskThread* pThread));
    ~CCmTaskThread() override;

    /// Starts the thread. Returns 0, CACHE_ERR_OUT_OF_MEMORY, or CACHE_ERR_FAILED if the system
    /// cannot start it. After a failure the object has no queue.
    CmInt32 Start();

    CmInt32 Stop(void* pTimeout) override;
    CmInt32 Join() override;

    CRefPtr<CCmTaskThread> m_pEarlier;  // the next in the manager's list, guarded by its mutex

 private:
    static void Run(CmUint32 dwNumber, CCmEventQueue& aQueue);

    void (*const m_pOnJoined)(CCmTaskThread* pThread);
    CCmMutexThread m_mutexJoin;
    std::thread m_thread CM_GUARDED_BY(m_mutexJoin);
};
