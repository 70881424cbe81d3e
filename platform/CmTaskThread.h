#pragma once

#include <thread>

#include "platform/CmQueuedThread.h"

/// A thread that the library runs. It fires the events of its queue until it is stopped and the
/// queue is empty.
///
/// Counted; the thread manager and the files that use the thread hold references. Any thread may
/// call it: a mutex guards the system's thread, which uses nothing of this object, so the object
/// may be freed first.
class CCmTaskThread final : public CCmQueuedThread {
 public:
    /// pOnJoined is called after each Join that has waited, with no lock held.
    explicit CCmTaskThread(void (*pOnJoined)(CCmTaskThread* pThread));
    ~CCmTaskThread() override;

    /// Starts the thread. CACHE_ERR_OUT_OF_MEMORY, or CACHE_ERR_FAILED if the system refuses; the
    /// object then has no queue.
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
