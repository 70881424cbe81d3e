#include "tests/support/Events.h"

CmInt32 RunOn(const CRefPtr<ACmThread>& pThread, TestEvent::Work aWork) {
    EventCounts aCounts;
    return pThread->GetEventQueue()->SendEvent(new TestEvent(aCounts, std::move(aWork)));
}

void Signal::Raise() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    m_bRaised = true;
    m_raised.notify_all();
}

void Signal::Wait() {
    std::unique_lock<std::mutex> aLock(m_mutex);
    m_raised.wait(aLock, [this] { return m_bRaised; });
}

ThreadGate::ThreadGate(const CRefPtr<ACmThread>& pThread) {
    const auto hold = [pState = m_pState] {
        pState->aInside.Raise();
        pState->aOpen.Wait();
        return 0;
    };
    pThread->GetEventQueue()->PostEvent(new TestEvent(m_pState->aCounts, hold), 1);
    m_pState->aInside.Wait();
}
