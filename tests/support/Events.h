#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "platform/CmThreadManager.h"

/// Counts what happened to the events that were created with it.
struct EventCounts {
    std::atomic<int> nFired{0};
    std::atomic<int> nDisposed{0};
};

/// An event that runs a function and counts.
class TestEvent final : public ICmEvent {
 public:
    using Work = std::function<CmInt32()>;

    TestEvent(EventCounts& aCounts, Work aWork = nullptr, Urgency aUrgency = Urgent)
        : ICmEvent(0, aUrgency), m_counts(aCounts), m_work(std::move(aWork)) {}
    ~TestEvent() override { ++m_counts.nDisposed; }
    CmInt32 OnEventFire() override {
        ++m_counts.nFired;
        return m_work ? m_work() : 0;
    }

 private:
    EventCounts& m_counts;
    const Work m_work;
};

/// Runs aWork on the thread after everything in its queue, waits for it and returns its result.
CmInt32 RunOn(const CRefPtr<ACmThread>& pThread, TestEvent::Work aWork);

/// A flag that one thread raises and others wait for. It may be destroyed as soon as a wait has
/// ended.
class Signal {
 public:
    void Raise();
    void Wait();

 private:
    std::mutex m_mutex;
    std::condition_variable m_raised;
    bool m_bRaised = false;  // guarded by m_mutex
};

/// Blocks a thread inside an event, so that nothing else in its queue runs until the gate is
/// opened.
class ThreadGate {
 public:
    explicit ThreadGate(const CRefPtr<ACmThread>& pThread);
    ~ThreadGate() { Open(); }
    void Open() { m_pState->aOpen.Raise(); }

 private:
    struct State {
        EventCounts aCounts;
        Signal aInside;
        Signal aOpen;
    };
    const std::shared_ptr<State> m_pState = std::make_shared<State>();
};
