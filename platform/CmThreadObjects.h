#pragma once

#include <functional>
#include <mutex>
#include <thread>

#include "platform/CmCallSlot.h"
#include "platform/CmCallerThread.h"
#include "platform/CmEventQueue.h"
#include "platform/CmSystem.h"
#include "platform/CmThread.h"

/// What both kinds of thread objects share: a number and a queue that can be taken away. Events of
/// the queue hold the object in turn, through their file's proxy; taking the queue away ends that
/// circle. Any thread: the number is constant, and the queue is guarded by the mutex.
class CCmQueuedThread : public ACmThread {
 public:
    CRefPtr<ICmEventQueue> GetEventQueue() override;
    bool IsCurrent() const override { return CmCurrentThreadNumber() == m_dwNumber; }

    /// Around a fork: the queue isn't taken away in between.
    void BeforeFork() CM_ACQUIRE(m_mutex) { m_mutex.Lock(); }
    void AfterFork() CM_RELEASE(m_mutex) { m_mutex.UnLock(); }

 protected:
    explicit CCmQueuedThread(CmUint32 dwNumber) : m_dwNumber(dwNumber) {}

    void SetQueue(CCmEventQueue* pQueue);
    CRefPtr<CCmEventQueue> TakeQueue();

    const CmUint32 m_dwNumber;

 private:
    CCmMutexThread m_mutex;
    CRefPtr<CCmEventQueue> m_pQueue CM_GUARDED_BY(m_mutex);  // null once stopped or detached
};

/// A thread that the library runs: fires the events of its queue until it is stopped and empty.
/// The thread itself uses nothing of the object.
class CCmTaskThread final : public CCmQueuedThread {
 public:
    CCmTaskThread();
    ~CCmTaskThread() override;

    /// Starts it; CACHE_ERR_OUT_OF_MEMORY or CACHE_ERR_FAILED if that can't be done.
    CmInt32 Start();

    CmInt32 Stop(void* pTimeout) override;
    CmInt32 Join() override;

    CRefPtr<CCmTaskThread> m_pEarlier;  // the next in the manager's list, guarded by its mutex

 private:
    static void Run(CmUint32 dwNumber, CCmEventQueue& aQueue);

    CCmMutexThread m_mutexJoin;
    std::thread m_thread CM_GUARDED_BY(m_mutexJoin);
};

/// The caller thread's queue: tells the host when results come to wait.
class CCmCallerQueue final : public CCmEventQueue {
 public:
    /// Throws std::bad_alloc with the earlier callable kept.
    void SetWakeUp(CCmCallerThread::WakeUp aWakeUp);
    int GetDescriptor();  // -1 if there can't be one
    /// Refuses new events, forgets callable and descriptor, disposes of what waits.
    void End();
    /// Forgets callable and descriptor; what waits stays.
    void DropWakeUps();

    /// As those of CCmEventQueue. The child closes its copies of the descriptor: taking a signal
    /// out of it would take it from the parent.
    void BeforeFork();
    void AfterForkInParent();
    void AfterForkInChild();

 private:
    void OnStoppedBeingEmpty() override { m_wakeUp.Call(); }
    void OnHasEventsLocked(bool bHasEvents) override;
    void CloseDescriptor();

    CCmCallSlot<CCmCallerThread::WakeUp> m_wakeUp;
    CCmWakeDescriptor m_descriptor;  // guarded by m_mutex
};

/// The thread object of one attachment of a host's thread. Without a queue after that has ended.
class CCmAttachedThread final : public CCmQueuedThread {
 public:
    /// For the calling thread, which becomes the owner of pQueue.
    explicit CCmAttachedThread(CCmCallerQueue* pQueue);

    CmInt32 Stop(void* pTimeout) override;
    CmInt32 Join() override;

    /// Takes the queue away for good.
    CRefPtr<CCmCallerQueue> Detach();

    /// The queue, for the host's side; null once detached.
    CRefPtr<CCmCallerQueue> GetCallerQueue();
};

/// Who is attached. One object for the process, never destroyed.
class CCmCallerState {
 public:
    static CCmCallerState& Instance();

    CmInt32 Attach();
    CmInt32 Detach();
    /// The attached thread, whichever it is; null if there is none. Any thread.
    CRefPtr<CCmAttachedThread> GetThread();
    /// The queue if the calling thread is the attached one, else null.
    CRefPtr<CCmCallerQueue> GetOwnQueue();
    /// See CCmCallerQueue.
    void DropWakeUps();

    /// Around a fork: neither the attachment nor its queue changes in between. A child whose parent
    /// had another thread attached has none.
    void BeforeFork() CM_NO_LOCK_ANALYSIS;
    void AfterForkInParent() CM_NO_LOCK_ANALYSIS;
    void AfterForkInChild() CM_NO_LOCK_ANALYSIS;

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CCmCallerState() = default;

    CCmMutexThread m_mutex;
    CRefPtr<CCmAttachedThread> m_pCurrent CM_GUARDED_BY(m_mutex);
    CmUint32 m_dwNesting CM_GUARDED_BY(m_mutex) = 0;
    CRefPtr<CCmCallerQueue> m_pForkedQueue CM_GUARDED_BY(m_mutex);  // held during a fork
};
