#include "platform/CmQueueRest.h"

#include <new>
#include <thread>
#include <utility>

namespace {

/// About as long as a wake-up takes. With this limit, polling and then sleeping costs at most twice
/// as much as the better choice would have cost: to keep polling, or to sleep at once. A host that
/// reads in a loop posts its next read a few microseconds after a result, well within this time
/// (docs/performance.md has the times).
constexpr std::chrono::microseconds c_poll{30};

/// The longest time for which a write waits in memory during a short sleep of the worker. A program
/// that reads the file while it grows hardly notices this delay, and 500 timer wake-ups per second
/// need almost no processor time. At 500 MiB/s, which is more than a recording produces, 1 MiB is
/// queued during a short sleep. That is the amount above which writes are urgent
/// (core/PendingBytes.cpp).
constexpr std::chrono::milliseconds c_shortSleep{2};

}  // namespace

void CCmQueueRest::OnFire(ICmEvent::Urgency aUrgency) {
    (aUrgency == ICmEvent::Urgent ? m_bFiredUrgent : m_bFiredNotUrgent) = true;
}

bool CCmQueueRest::EndWait(ICmEvent::Urgency aUrgency) {
    const bool bEnds =
        m_state == Asleep || (m_state == InShortSleep && aUrgency == ICmEvent::Urgent);
    if (bEnds) m_state = Awake;
    return bEnds;
}

void CCmQueueRest::Poll() {
    if (!std::exchange(m_bFiredUrgent, false)) return;
    const Clock::time_point aLimit = Clock::now() + c_poll;
    while (!m_bHasWork.load(std::memory_order_relaxed) && Clock::now() < aLimit)
        std::this_thread::yield();
}

bool CCmQueueRest::TakeFiredNotUrgent() { return std::exchange(m_bFiredNotUrgent, false); }

void CCmQueueRest::SleepBriefly(std::unique_lock<std::mutex>& aLock) {
    m_state = InShortSleep;
    const Clock::time_point aLimit = Clock::now() + c_shortSleep;
    while (m_state == InShortSleep)
        if (m_wake.wait_until(aLock, aLimit) == std::cv_status::timeout) break;
    m_state = Awake;
}

void CCmQueueRest::Sleep(std::unique_lock<std::mutex>& aLock) {
    m_state = Asleep;
    m_wake.wait(aLock);
    m_state = Awake;
}

bool CCmQueueRest::SleepUntil(std::unique_lock<std::mutex>& aLock, Clock::time_point aLimit) {
    m_state = Asleep;
    const bool bInTime = m_wake.wait_until(aLock, aLimit) == std::cv_status::no_timeout;
    m_state = Awake;
    return bInTime;
}

void CCmQueueRest::AfterForkInChild() {
    m_state = Awake;
    new (&m_wake) std::condition_variable;  // destroying it would wait for its waiters
}
