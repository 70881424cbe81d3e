#pragma once

#include "platform/CmNeverDestroyed.h"
#include "platform/CmThread.h"
#include "platform/CmTypes.h"

/// Provides the two threads of asynchronous files: the R/W thread, which runs the operations of all
/// asynchronous files of the process one after another, and the caller thread, which receives the
/// results.
///
/// One object for the process, never destroyed. The thread on which the host drives its handlers
/// calls it; the lock is for the exit handler, which may run on any thread. If there is no thread
/// the result is null, and a proxy built with null refuses its operations.
class CFileThreadManager {
 public:
    static CFileThreadManager* Instance();

    /// The R/W thread, created and started if there is none. Null if it cannot be created (traced;
    /// the next call tries again) and during a shutdown.
    CRefPtr<ACmThread> GetPrimaryNFSThread();

    /// The thread that the host has attached at this moment, or null.
    CRefPtr<ACmThread> GetCallerThread();

    /// Stops pThread if it is the R/W thread, and waits until it has run everything queued and
    /// ended. The next GetPrimaryNFSThread creates a new one; files opened on the old one return
    /// CACHE_ERR_INVALID_STATE. Another thread, or null, is ignored.
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
    int m_nShutdowns = 0;  // that are running: they nest if a callback shuts down too
};
