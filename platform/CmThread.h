#pragma once

#include "platform/CmEvent.h"
#include "platform/CmTypes.h"

/// A thread that can be given work. Counted; hold it in a CRefPtr while using it. An object stands
/// for one thread only: once that thread was asked to stop (or was detached), the object has no
/// queue any more, and it never gets another one.
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
