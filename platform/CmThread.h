#pragma once

#include "platform/CmEvent.h"
#include "platform/CmTypes.h"

class CCmTaskThread;

/// A thread that can be given work. Counted; hold it in a CRefPtr while using it. An object stands
/// for one thread only: once that was asked to stop (or was detached), the object has no queue any
/// more, and it never gets another one.
class ACmThread : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// The queue through which the thread takes work; null after the thread was asked to stop (or
    /// was detached). Any thread.
    virtual CRefPtr<ICmEventQueue> GetEventQueue() = 0;

    /// Asks the thread to end once everything queued so far has run; new work is refused from now
    /// on. Returns at once. The argument is not used. Any thread. Call Join afterwards: until then
    /// the library holds a reference.
    virtual CmInt32 Stop(void* pTimeout) = 0;

    /// Waits until a stopped thread has ended. On the thread itself, or for a thread that the
    /// library has not started: CACHE_ERR_INVALID_STATE at once. Any thread, and several threads at
    /// the same time; each of them holds a reference.
    virtual CmInt32 Join() = 0;

    /// Whether the calling thread is this one.
    virtual bool IsCurrent() const = 0;
};

/// Makes threads and knows those there are. One object for the process, never destroyed. Any
/// thread: what it knows is guarded by its mutex.
class CCmThreadManager {
 public:
    enum TFlag : CmInt32 { TF_NONE = 0, TF_JOINABLE = 1 };
    enum : CmInt32 { Thread_Caller = 3 };

    static CCmThreadManager* Instance();

    /// Creates and starts a thread with an event queue of its own, which runs what is posted to
    /// it one at a time in posting order. 0, or a code with pThread null. Besides pThread the
    /// manager holds a reference, until the thread has been joined. nPriority and nStack are
    /// the platform's: 0 and -1 mean the defaults, the only values there are. The first one
    /// registers the exit handler of systems that have one (CmSystem.h); once that has run no
    /// thread can be created.
    CmInt32 CreateUserTaskThread(CRefPtr<ACmThread>& pThread, TFlag aFlag, int nPriority,
                                 int nStack);

    /// The existing thread of a type: Thread_Caller is the one that the host has attached
    /// (CmCallerThread.h). Null if there is none. Any thread.
    CRefPtr<ACmThread> GetThread(CmInt32 lType);

 private:
    friend class CCmTaskThread;
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

/// A number of the calling thread that no other thread of the process has or will have. Never 0.
CmUint32 CmCurrentThreadNumber();
