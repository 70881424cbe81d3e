#pragma once

#include "platform/CmAttachedThread.h"

/// Stores which thread is attached. One object for the process, never destroyed. Any thread may
/// call it, because a mutex guards the attachment.
class CCmCallerState {
 public:
    static CCmCallerState& Instance();

    /// See CCmCallerThread.
    CmInt32 Attach();
    CmInt32 Detach();

    /// Returns the attached thread, or null.
    CRefPtr<CCmAttachedThread> GetThread();

    /// Returns the queue if the calling thread is the attached one, otherwise null.
    CRefPtr<CCmCallerQueue> GetOwnQueue();

    /// See CCmCallerQueue.
    void DropWakeUps();

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CCmCallerState();

    // Called before and after a fork. The attachment and its queue do not change in between. If the
    // attached thread is not the one that forks, the child has no attachment.
    void BeforeFork() CM_NO_LOCK_ANALYSIS;
    void AfterForkInParent() CM_NO_LOCK_ANALYSIS;
    void AfterForkInChild() CM_NO_LOCK_ANALYSIS;

    CCmMutexThread m_mutex;
    CRefPtr<CCmAttachedThread> m_pCurrent CM_GUARDED_BY(m_mutex);
    CmUint32 m_dwNesting CM_GUARDED_BY(m_mutex) = 0;
    CRefPtr<CCmCallerQueue> m_pForkedQueue CM_GUARDED_BY(m_mutex);  // held during a fork
};
