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

namespace {

class GateEvent final : public ICmEvent {
 public:
    GateEvent(std::shared_ptr<Signal> pInside, std::shared_ptr<Signal> pOpen)
        : ICmEvent(0), m_pInside(std::move(pInside)), m_pOpen(std::move(pOpen)) {}
    CmInt32 OnEventFire() override {
        m_pInside->Raise();
        m_pOpen->Wait();
        return 0;
    }

 private:
    const std::shared_ptr<Signal> m_pInside;
    const std::shared_ptr<Signal> m_pOpen;
};

}  // namespace

ThreadGate::ThreadGate(const CRefPtr<ACmThread>& pThread) {
    const auto pInside = std::make_shared<Signal>();
    pThread->GetEventQueue()->PostEvent(new GateEvent(pInside, m_pOpen), 1);
    pInside->Wait();
}
