#pragma once

#include "platform/CmCallSlot.h"
#include "platform/CmCallable.h"
#include "platform/CmEventQueue.h"
#include "platform/CmSystem.h"

/// The event queue of the caller thread. It informs the host, by a callable and a descriptor, when
/// results begin to wait.
///
/// Counted; the attached thread object and every poster hold references. Threads as for
/// CCmEventQueue: the slot has its own lock, and the queue's mutex guards the descriptor.
class CCmCallerQueue final : public CCmEventQueue {
 public:
    /// Installs the callable of CCmCallerThread::SetWakeUp. Throws std::bad_alloc with the earlier
    /// callable kept.
    void SetWakeUp(CCmCallable<void()> aWakeUp);

    /// The descriptor that is readable while anything waits; -1 if the system gives none.
    int GetDescriptor();

    /// Refuses new events, forgets callable and descriptor, disposes of what waits.
    void End();

    /// Forgets callable and descriptor; what waits stays.
    void DropWakeUps();

    /// As those of CCmEventQueue. The child closes its copies of the descriptor: taking a signal
    /// out of it would take it from the parent.
    void BeforeFork();
    void AfterForkInParent();
    void AfterForkInChild();

 private:
    void OnStoppedBeingEmpty() override { m_wakeUp.Call(); }
    void OnHasEventsLocked(bool bHasEvents) override;
    void CloseDescriptor();

    CCmCallSlot<CCmCallable<void()>> m_wakeUp;
    CCmWakeDescriptor m_descriptor;  // guarded by m_mutex
};
