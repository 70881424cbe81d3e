#pragma once

#include "platform/CmImmortal.h"
#include "platform/CmThread.h"
#include "platform/CmTypes.h"

/// Where asynchronous files get their two threads: the R/W thread, which runs the operations of all
/// asynchronous files of the process one after another, and the caller thread, which receives the
/// results.
///
/// One object for the process, never destroyed. No lock: it belongs to the thread on which the host
/// drives its handlers. A thread that can't be had is null, which the proxy built with it refuses.
class CFileThreadManager {
 public:
    static CFileThreadManager* Instance();

    /// The R/W thread, created and started if there is none. Null if it can't be created (traced;
    /// the next call tries again) and during a shutdown.
    ACmThread* GetPrimaryNFSThread();

    /// The thread that the host has attached at this moment, or null.
    ACmThread* GetCallerThread();

    /// Stops pThread if it is the R/W thread, and waits until it has run everything queued and
    /// ended. The next GetPrimaryNFSThread creates a new one; files opened on the old one answer
    /// CACHE_ERR_INVALID_STATE. Anything else than the R/W thread is ignored.
    void StopThread(ACmThread* pThread);

    /// See CacheFileShutdown.
    CmInt32 Shutdown();

 private:
    template <class T>
    friend T& CmImmortal();
    CFileThreadManager() = default;

    ACmThread* m_pPrimaryNFSThread = nullptr;
    int m_nShutdowns = 0;  // shutdowns under way; they nest when a callback shuts down too
};
