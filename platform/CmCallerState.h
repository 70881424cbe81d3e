#pragma once

#include "platform/CmAttachedThread.h"

/// Knows which thread is attached. One object for the process, never destroyed. Any thread may call
/// it: a mutex guards the attachment.
class CCmCallerState {
 public:
    static CCmCallerState& Instance();

    /// See CCmCallerThread.
    CmInt32 Attach();
    CmInt32 Detach();

    /// The attached thread, whichever it is; null if there is none.
    CRefPtr<CCmAttachedThread> GetThread();

    /// The queue if the calling thread is the attached one, else null.
    CRefPtr<CCmCallerQueue> GetOwnQueue();

    /// See CCmCallerQueue.
    void DropWakeUps();

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CCmCallerState();

    // Around a fork: neither the attachment nor its queue changes in between. A child whose parent
    // had another thread attached has none.
    void BeforeFork() CM_NO_LOCK_ANALYSIS;
    void AfterForkInParent() CM_NO_LOCK_ANALYSIS;
    void AfterForkInChild() CM_NO_LOCK_ANALYSIS;

    CCmMutexThread m_mutex;
    CRefPtr<CCmAttachedThread> m_pCurrent CM_GUARDED_BY(m_mutex);
    CmUint32 m_dwNesting CM_GUARDED_BY(m_mutex) = 0;
    CRefPtr<CCmCallerQueue> m_pForkedQueue CM_GUARDED_BY(m_mutex);  // held during a fork
};
