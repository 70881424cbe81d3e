#include "platform/CmCallerQueue.h"

#include <mutex>
#include <utility>

void CCmCallerQueue::SetWakeUp(CCmCallable<void()> aWakeUp) {
    m_wakeUp.Set(std::move(aWakeUp));
    bool bHasEvents = false;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        bHasEvents = m_bHasEvents;
    }
    // An earlier callable may have been called for the events that wait. They cause no further
    // call.
    if (bHasEvents) m_wakeUp.Call();
}

/// Stops the queue first: an event that is posted after the others were freed would never be freed.
void CCmCallerQueue::End() {
    Stop();
    DropWakeUps();
    DropWaiting();
}

void CCmCallerQueue::DropWakeUps() {
    m_wakeUp.Set({});
    CloseDescriptor();
}

/// Opens the descriptor on the first call, because hosts that use the callable need none.
int CCmCallerQueue::GetDescriptor() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    if (!m_descriptor.IsOpen() && m_descriptor.Open() && m_bHasEvents) m_descriptor.Signal();
    return m_descriptor.GetDescriptor();
}

void CCmCallerQueue::CloseDescriptor() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    m_descriptor.Close();
}

void CCmCallerQueue::OnHasEventsLocked(bool bHasEvents) {
    if (!m_descriptor.IsOpen()) return;
    if (bHasEvents)
        m_descriptor.Signal();
    else
        m_descriptor.Clear();
}

void CCmCallerQueue::BeforeFork() {
    m_wakeUp.BeforeFork();
    CCmEventQueue::BeforeFork();
}

void CCmCallerQueue::AfterForkInParent() {
    CCmEventQueue::AfterForkInParent();
    m_wakeUp.AfterForkInParent();
}

void CCmCallerQueue::AfterForkInChild() {
    m_descriptor.Close();
    CCmEventQueue::AfterForkInChild();
    m_wakeUp.AfterForkInChild();
}
