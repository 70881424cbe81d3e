#pragma once

#include "platform/CmEvent.h"
#include "platform/CmTypes.h"

class CCmTaskThread;

/// A thread that can be given work. Thread objects are never freed, so a plain pointer to one
/// stays good for ever; what an ended one keeps is a few words.
class ACmThread {
 public:
    /// The queue through which the thread takes work; null from the moment it was asked to stop
    /// (or detached). Any thread.
    virtual CRefPtr<ICmEventQueue> GetEventQueue() = 0;

    /// Asks the thread to end once everything queued so far has run; new work is refused from now
    /// on. Returns at once. The argument is not used. Any thread.
    virtual CmInt32 Stop(void* pTimeout) = 0;

    /// Waits until a stopped thread has ended. On the thread itself, or for a thread that the
    /// library has not started: CACHE_ERR_INVALID_STATE at once. Any thread, several at once too.
    virtual CmInt32 Join() = 0;

    /// Whether the calling thread is this one.
    virtual bool IsCurrent() const = 0;

 protected:
    ~ACmThread() = default;
};

/// Makes threads and knows those there are. One object for the process, never destroyed.
class CCmThreadManager {
 public:
    enum TFlag : CmInt32 { TF_NONE = 0, TF_JOINABLE = 1 };
    enum : CmInt32 { Thread_Caller = 3 };

    static CCmThreadManager* Instance();

    /// Creates and starts a thread with an event queue of its own, which runs what is posted to
    /// it one at a time in posting order. 0, or a code with pThread null. nPriority and nStack are
    /// the platform's: 0 and -1 mean the defaults, the only values there are. The first one
    /// registers the exit handler of systems that have one (CmSystem.h); once that has run no
    /// thread can be created.
    CmInt32 CreateUserTaskThread(ACmThread*& pThread, TFlag aFlag, int nPriority, int nStack);

    /// The existing thread of a type: Thread_Caller is the one that the host has attached
    /// (CmCallerThread.h). Null if there is none. Any thread.
    ACmThread* GetThread(CmInt32 lType);

 private:
    template <class T>
    friend T& CmImmortal();
    CCmThreadManager() = default;

    static void OnProcessExit();
    void StopAllForExit();

    CCmMutexThread m_mutex;
    /// All there ever were, linked through themselves.
    CCmTaskThread* m_pTaskThreads CM_GUARDED_BY(m_mutex) = nullptr;
    bool m_bExiting CM_GUARDED_BY(m_mutex) = false;
    bool m_bExitHandler CM_GUARDED_BY(m_mutex) = false;
};

/// A number of the calling thread that no other thread of the process has or will have. Never 0.
CmUint32 CmCurrentThreadNumber();
