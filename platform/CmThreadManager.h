#pragma once

#include "platform/CmMutex.h"
#include "platform/CmThread.h"

class CCmTaskThread;

/// Creates threads and finds the existing ones. One object for the process, never destroyed. Any
/// thread may call it: a mutex guards its list.
class CCmThreadManager {
 public:
    enum TFlag : CmInt32 { TF_NONE = 0, TF_JOINABLE = 1 };
    enum : CmInt32 { Thread_Caller = 3 };

    static CCmThreadManager* Instance();

    /// Creates and starts a thread with an event queue. It runs the posted events one at a time in
    /// the order of posting. Returns 0, or a code with pThread null. The manager also holds a
    /// reference until the thread has been joined. nPriority has to be 0 and nStack -1, which mean
    /// the defaults. The first thread registers the exit handler on systems that have one
    /// (CmSystem.h). After that handler has run, no thread can be created.
    CmInt32 CreateUserTaskThread(CRefPtr<ACmThread>& pThread, TFlag aFlag, int nPriority,
                                 int nStack);

    /// Returns the existing thread of a type, or null. Thread_Caller is the one that the host has
    /// attached (CmCallerThread.h).
    CRefPtr<ACmThread> GetThread(CmInt32 lType);

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CCmThreadManager() = default;

    static void OnProcessExit();
    void StopAllForExit();
    void ForgetJoined(CCmTaskThread* pThread);

    CCmMutexThread m_mutex;
    /// The first thread that has not been joined; the threads link to one another.
    CRefPtr<CCmTaskThread> m_pTaskThreads CM_GUARDED_BY(m_mutex);
    bool m_bExiting CM_GUARDED_BY(m_mutex) = false;
    bool m_bExitHandler CM_GUARDED_BY(m_mutex) = false;
};
