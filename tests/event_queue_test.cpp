#include <stdexcept>
#include <thread>

#include "platform/CmEventQueue.h"
#include "tests/support/HostTest.h"

namespace {

/// A thread with a queue, the host's queue, and events that count what happens to them.
class EventQueue : public HostTest {
 protected:
    EventQueue() {
        EXPECT_EQ(CCmThreadManager::Instance()->CreateUserTaskThread(
                      m_pThread, CCmThreadManager::TF_JOINABLE, 0, -1),
                  0);
        m_pQueue = m_pThread->GetEventQueue();
    }
    ~EventQueue() override {
        m_pThread->Stop(nullptr);
        m_pThread->Join();
        m_attached.reset();  // destroys pending events before the counters that they use
    }

    ICmEvent* Event(TestEvent::Work aWork = nullptr) {
        return new TestEvent(m_counts, std::move(aWork));
    }
    ICmEvent* Note(const char* lpText, CmInt32 lResult = 0) {
        return Event([=] {
            m_strFired += lpText;
            return lResult;
        });
    }
    static CmUint32 Run() {
        CmUint32 dwCount = 99;
        EXPECT_EQ(CCmCallerThread::RunPending(&dwCount), 0);
        return dwCount;
    }
    void ExpectCounts(int nFired, int nDisposed) {
        EXPECT_EQ(m_counts.nFired, nFired);
        EXPECT_EQ(m_counts.nDisposed, nDisposed);
    }

    EventCounts m_counts;
    CRefPtr<ACmThread> m_pThread;
    CRefPtr<ICmEventQueue> m_pQueue;
    std::string m_strFired;
};

}  // namespace

TEST_F(EventQueue, SendEventWaitsForAnotherThreadAndRunsAtOnceOnItsOwn) {
    m_pQueue->PostEvent(Note("posted "), 1);
    EXPECT_EQ(m_pQueue->SendEvent(Note("sent ", 42)), 42);
    EXPECT_EQ(RunOn(m_pThread,
                    [&] {
                        m_pQueue->PostEvent(Note("later "), 1);
                        return m_pQueue->SendEvent(Note("nested ", 43));
                    }),
              43);
    RunOn(m_pThread, nullptr);
    EXPECT_EQ(m_strFired, "posted sent nested later ");
    ExpectCounts(4, 4);
}

TEST_F(EventQueue, AStoppedThreadRunsQueuedEventsAndRefusesNewOnes) {
    ThreadGate aGate(m_pThread);
    m_pQueue->PostEvent(Event([this] { return m_pThread->Join() == 4010 ? 0 : 1; }), 1);
    EXPECT_EQ(m_pThread->Stop(nullptr), 0);
    EXPECT_FALSE(m_pThread->GetEventQueue());
    EXPECT_EQ(m_pQueue->PostEvent(Event(), 1), 4010);
    EXPECT_EQ(m_pQueue->SendEvent(Event()), 4010) << "without waiting";
    ExpectCounts(0, 2);
    aGate.Open();
    std::thread aOther([this] { EXPECT_EQ(m_pThread->Join(), 0); });
    EXPECT_EQ(m_pThread->Join(), 0);
    aOther.join();
    ExpectCounts(1, 3);
}

TEST_F(EventQueue, ANestedRunContinuesTheOuterRun) {
    const CRefPtr<ICmEventQueue> pHost = HostQueue();
    pHost->PostEvent(Event([&] {
                         m_strFired += "a(";
                         pHost->PostEvent(Note("new "), 1);
                         EXPECT_EQ(Run(), 2U);  // b, which the outer run has taken, and new
                         m_strFired += ")";
                         return pHost->PostEvent(Note(" next"), 1);
                     }),
                     1);
    pHost->PostEvent(Note("b "), 1);
    EXPECT_EQ(Run(), 1U);
    EXPECT_EQ(m_strFired, "a(b new )") << "an event that is posted during a run waits";
    EXPECT_EQ(Run(), 1U);
    pHost->PostEvent(Event([]() -> CmInt32 { throw std::runtime_error("a host's own"); }), 1);
    pHost->PostEvent(Note(" rest"), 1);
    EXPECT_THROW(CCmCallerThread::RunPending(), std::runtime_error);
    ExpectCounts(5, 5);
    EXPECT_EQ(Run(), 1U);
    EXPECT_EQ(m_strFired, "a(b new ) next rest");
}

TEST_F(EventQueue, OnlyOneThreadIsAttachedAndAttachCallsNest) {
    const CRefPtr<ACmThread> pHost = CCmThreadManager::Instance()->GetThread(3);
    const CRefPtr<ICmEventQueue> pQueue = HostQueue();
    EXPECT_EQ(CCmCallerThread::Attach(), 0);
    std::thread([] {
        EXPECT_EQ(CCmCallerThreadGuard().GetResult(), 4010);
        EXPECT_EQ(CCmCallerThread::Detach(), 4010);
        EXPECT_EQ(CCmCallerThread::WaitAndRun(1000), 4010);
        EXPECT_EQ(CCmCallerThread::SetWakeUp([] {}), 4010);
    }).join();
    EXPECT_EQ(CCmCallerThread::Detach(), 0);
    EXPECT_TRUE(CCmCallerThread::IsCurrent());
    pQueue->PostEvent(Event(), 1);
    m_attached.reset();
    ExpectCounts(0, 1);
    EXPECT_FALSE(CCmThreadManager::Instance()->GetThread(3));
    EXPECT_EQ(pQueue->PostEvent(Event(), 1), 4010);
    EXPECT_EQ(CCmCallerThread::RunPending(), 4010);
    EXPECT_EQ(CCmCallerThread::Detach(), 4010);
    std::thread([this] {  // now another thread may attach
        const CCmCallerThreadGuard aGuard;
        HostQueue()->PostEvent(Event(), 1);
        EXPECT_EQ(Run(), 1U);
    })
        .join();
    EXPECT_FALSE(pHost->GetEventQueue()) << "the object of the first attachment stays detached";
    ExpectCounts(1, 3);
}

TEST_F(EventQueue, AThreadObjectLivesWhileItIsReferenced) {
    std::atomic<bool> bEnd{false};
    std::thread aOther([&] {
        while (!bEnd) {
            const CRefPtr<ACmThread> pHost = CCmThreadManager::Instance()->GetThread(3);
            const CRefPtr<ICmEventQueue> pQueue = pHost ? pHost->GetEventQueue() : nullptr;
            if (pQueue) pQueue->PostEvent(Event(), 1);
        }
    });
    for (int i = 0; i < 300; ++i) {
        m_attached.reset();
        m_attached.emplace();
        CRefPtr<ACmThread> pThread;
        ASSERT_EQ(CCmThreadManager::Instance()->CreateUserTaskThread(
                      pThread, CCmThreadManager::TF_JOINABLE, 0, -1),
                  0);
        std::thread aJoining([p = pThread] { EXPECT_EQ(p->Join(), 0); });
        pThread->Stop(nullptr);
        if (i % 2) {
            EXPECT_EQ(pThread->Join(), 0);
        }
        pThread = nullptr;
        aJoining.join();
    }
    bEnd = true;
    aOther.join();
}

TEST_F(EventQueue, DetachingTheThreadEndsASend) {
    const CRefPtr<ICmEventQueue> pHost = HostQueue();
    Signal aWaits;
    CCmCallerThread::SetWakeUp([&] { aWaits.Raise(); });
    std::thread aSender([&] { EXPECT_EQ(pHost->SendEvent(Event()), 4010); });
    aWaits.Wait();
    m_attached.reset();
    aSender.join();
    ExpectCounts(0, 1);
}

TEST_F(EventQueue, AnEventEndsAWait) {
    CmUint32 dwCount = 99;
    EXPECT_EQ(CCmCallerThread::WaitAndRun(1, &dwCount), 0);
    EXPECT_EQ(dwCount, 0U);
    const CRefPtr<ICmEventQueue> pHost = HostQueue();
    for (int i = 0; i < 200; ++i) {  // each round must end a sleep of the thread
        m_pQueue->PostEvent(Event([&] { return pHost->PostEvent(Event(), 1); }), 1);
        EXPECT_EQ(CCmCallerThread::WaitAndRun(100'000, &dwCount), 0);
        EXPECT_EQ(dwCount, 1U);
    }
    Signal aFired;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the thread is asleep by now
    const auto raise = [&] { return aFired.Raise(), 0; };
    m_pQueue->PostEvent(new TestEvent(m_counts, raise, ICmEvent::NotUrgent), 1);
    aFired.Wait();
}

TEST_F(EventQueue, OfTimedEventsWithOneKeyTheLastIsFired) {
    struct Timed final : ICmTimedEvent {
        Timed(EventCounts& aUsed, Signal& aSignal, int nHours, const void* pKey,
              std::uint64_t qwNumber)
            : ICmTimedEvent(CCmEventQueue::Clock::now() + std::chrono::hours(nHours), pKey,
                            qwNumber),
              aCounts(aUsed),
              aFired(aSignal) {}
        ~Timed() override { ++aCounts.nDisposed; }
        CmInt32 OnEventFire() override { return ++aCounts.nFired, aFired.Raise(), 0; }
        EventCounts& aCounts;
        Signal& aFired;
    };
    Signal aFired;
    const auto post = [&](int nHours, const void* pKey, std::uint64_t qwNumber) {
        EXPECT_EQ(m_pQueue->PostTimedEvent(new Timed(m_counts, aFired, nHours, pKey, qwNumber)), 0);
    };
    EventCounts aOther;
    for (unsigned i = 0; i < 5; ++i) post(i % 2 ? 1 : 2, this, i);
    post(3, &aOther, 0);
    post(0, this, 3);  // posted late: it is out of date
    ExpectCounts(0, 5);
    post(0, this, 5);
    aFired.Wait();
    RunOn(m_pThread, nullptr);
    ExpectCounts(1, 7);
}
