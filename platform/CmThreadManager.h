#pragma once

#include "platform/CmMutex.h"
#include "platform/CmThread.h"

class CCmTaskThread;

/// Makes threads and finds the existing ones. One object for the process, never destroyed. Any
/// thread may call it: its mutex guards what it knows.
class CCmThreadManager {
 public:
    enum TFlag : CmInt32 { TF_NONE = 0, TF_JOINABLE = 1 };
    enum : CmInt32 { Thread_Caller = 3 };

    static CCmThreadManager* Instance();

    /// Creates and starts a thread with an event queue of its own, which runs the events posted to
    /// it one at a time in posting order. 0, or a code with pThread null. Besides pThread the
    /// manager holds a reference, until the thread has been joined. nPriority and nStack are
    /// the platform's: 0 and -1 mean the defaults, the only values there are. The first thread
    /// registers the exit handler of systems that have one (CmSystem.h); after that handler has run
    /// no thread can be created.
    CmInt32 CreateUserTaskThread(CRefPtr<ACmThread>& pThread, TFlag aFlag, int nPriority,
                                 int nStack);

    /// The existing thread of a type: Thread_Caller is the one that the host has attached
    /// (CmCallerThread.h). Null if there is none.
    CRefPtr<ACmThread> GetThread(CmInt32 lType);

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CCmThreadManager() = default;

    static void OnProcessExit();
    void StopAllForExit();
    void ForgetJoined(CCmTaskThread* pThread);

    CCmMutexThread m_mutex;
    /// Those that have not been joined, linked through themselves.
    CRefPtr<CCmTaskThread> m_pTaskThreads CM_GUARDED_BY(m_mutex);
    bool m_bExiting CM_GUARDED_BY(m_mutex) = false;
    bool m_bExitHandler CM_GUARDED_BY(m_mutex) = false;
};
