#pragma once

#include <atomic>

#include "platform/CmEventQueue.h"
#include "platform/CmThread.h"
#include "platform/CmThreadNumber.h"

/// The base of both kinds of thread objects: a number, and a queue that can be removed. Events in
/// the queue hold references to the thread object, through the proxy of their file. A queue that is
/// removed is emptied soon afterwards, which ends this circle of references.
///
/// Any thread may call it: the number and the queue do not change after the object is shared, and
/// an atomic shows whether the queue was removed. So posting a request needs no lock for this.
class CCmQueuedThread : public ACmThread {
 public:
    CRefPtr<ICmEventQueue> GetEventQueue() override;
    bool IsCurrent() const override { return CmCurrentThreadNumber() == m_dwNumber; }

 protected:
    explicit CCmQueuedThread(CmUint32 dwNumber) : m_dwNumber(dwNumber) {}

    /// Called once, before the object is shared.
    void SetQueue(CCmEventQueue* pQueue);

    /// Removes the queue and returns it; null if it was removed before.
    CRefPtr<CCmEventQueue> TakeQueue();

    const CmUint32 m_dwNumber;

 private:
    CRefPtr<CCmEventQueue> m_pQueue;

    /// False once stopped or detached. Released after m_pQueue is set, and acquired before it is
    /// read.
    std::atomic<bool> m_bHasQueue{false};
};
