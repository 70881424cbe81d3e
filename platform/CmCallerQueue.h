#pragma once

#include "platform/CmCallSlot.h"
#include "platform/CmCallable.h"
#include "platform/CmEventQueue.h"
#include "platform/CmSystem.h"

/// The event queue of the caller thread. It informs the host, by a callable and a descriptor, when
/// results begin to wait.
///
/// Counted: the attached thread object and every thread that posts hold references. Threads as for
/// CCmEventQueue: the slot has its own lock, and the queue's mutex guards the descriptor.
class CCmCallerQueue final : public CCmEventQueue {
 public:
    /// Installs the callable of CCmCallerThread::SetWakeUp. Throws std::bad_alloc with the earlier
    /// callable kept.
    void SetWakeUp(CCmCallable<void()> aWakeUp);

    /// Returns the descriptor that is readable while anything waits, or -1 if there is none.
    int GetDescriptor();

    /// Refuses new events, removes callable and descriptor, and frees the events that wait.
    void End();

    /// Removes callable and descriptor. The events that wait stay in the queue.
    void DropWakeUps();

    /// As those of CCmEventQueue. The child closes its copies of the descriptor, because reading a
    /// signal from it would remove the signal in the parent.
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
