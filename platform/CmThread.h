#pragma once

#include "platform/CmEvent.h"
#include "platform/CmTypes.h"

/// A thread with a queue of work. Counted: hold it in a CRefPtr while using it. An object
/// represents one thread. After that thread was stopped or detached, the object has no queue, and
/// it never gets another one.
class ACmThread : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// Returns the queue of the thread, or null after the thread was stopped or detached. Any
    /// thread.
    virtual CRefPtr<ICmEventQueue> GetEventQueue() = 0;

    /// Lets the thread end after everything that is queued has run. New work is refused from now
    /// on. Does not wait. The argument is not used. Any thread. Call Join afterwards: the library
    /// holds a reference until then.
    virtual CmInt32 Stop(void* pTimeout) = 0;

    /// Waits until a stopped thread has ended. Returns CACHE_ERR_INVALID_STATE without waiting on
    /// the thread itself, and for a thread that the library has not started. Any thread, and
    /// several threads at the same time; each of them holds a reference.
    virtual CmInt32 Join() = 0;

    /// Returns whether the calling thread is this one.
    virtual bool IsCurrent() const = 0;
};
