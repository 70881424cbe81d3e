#pragma once

#include "platform/CmNeverDestroyed.h"
#include "platform/CmThread.h"
#include "platform/CmTypes.h"

/// Provides the two threads of asynchronous files: the R/W thread, which runs the operations of all
/// asynchronous files of the process one after another, and the caller thread, which receives the
/// results.
///
/// One object for the process, never destroyed. The thread that drives the handlers calls it. The
/// lock is for the exit handler, which may run on any thread. If a thread does not exist, the
/// result is null, and a proxy that was created with null fails its operations.
class CFileThreadManager {
 public:
    static CFileThreadManager* Instance();

    /// Returns the R/W thread. Creates and starts it if there is none. Returns null during a
    /// shutdown, and if the thread cannot be created, which is traced; the next call tries again.
    CRefPtr<ACmThread> GetPrimaryNFSThread();

    /// Returns the thread that is attached as the caller thread, or null.
    CRefPtr<ACmThread> GetCallerThread();

    /// Stops pThread if it is the R/W thread, and waits until the thread has run everything that
    /// was queued and has ended. The next GetPrimaryNFSThread creates a new thread. Files that were
    /// opened on the old one return CACHE_ERR_INVALID_STATE. Ignores any other thread, and null.
    void StopThread(const CRefPtr<ACmThread>& pThread);

    /// See CacheFileShutdown.
    CmInt32 Shutdown();

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CFileThreadManager() = default;

    void RegisterExitHandlers();
    CRefPtr<ACmThread> TakePrimaryNFSThread();

    CCmMutexThread m_mutex;
    CRefPtr<ACmThread> m_pPrimaryNFSThread CM_GUARDED_BY(m_mutex);
    int m_nShutdowns = 0;  // how many run; they nest if a callback calls Shutdown
};
