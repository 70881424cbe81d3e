#include <array>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/CmResult.h"
#include "tests/support/HostTest.h"

namespace {

/// A worker of the test's own, and events that count.
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
    }

    static CRefPtr<ICmEventQueue> HostQueue() {
        return CCmThreadManager::Instance()->GetThread(3)->GetEventQueue();
    }
    CmInt32 Post(TestEvent::Work aWork = nullptr) {
        return HostQueue()->PostEvent(new TestEvent(m_counts, std::move(aWork)), 1);
    }
    CmInt32 PostName(const char* lpName) {
        return Post([=] {
            m_strFired += lpName;
            return 0;
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
    ACmThread* m_pThread = nullptr;
    CRefPtr<ICmEventQueue> m_pQueue;
    std::string m_strFired;
};

}  // namespace

TEST_F(EventQueue, ManyPostersKeepTheirOrderAndEveryEventEndsOnce) {
    constexpr int nPosters = 4;
    constexpr int nEach = 2000;
    std::array<int, nPosters> aNext{};  // the worker's
    bool bInOrder = true;
    std::vector<std::thread> vecPosters;
    for (std::size_t i = 0; i < nPosters; ++i)
        vecPosters.emplace_back([&, i] {
            for (int n = 0; n < nEach; ++n)
                m_pQueue->PostEvent(new TestEvent(m_counts,
                                                  [&, i, n] {
                                                      bInOrder = bInOrder && aNext[i]++ == n;
                                                      return 0;
                                                  }),
                                    1);
        });
    for (std::thread& aPoster : vecPosters) aPoster.join();
    RunOn(m_pThread, nullptr);
    EXPECT_TRUE(bInOrder);
    ExpectCounts(nPosters * nEach, nPosters * nEach);
}

TEST_F(EventQueue, SendingWaitsElsewhereAndFiresAtOnceOnTheOwnThread) {
    std::string strOrder;
    const auto note = [&](const char* lp, CmInt32 lResult) {
        return new TestEvent(m_counts, [&strOrder, lp, lResult] {
            strOrder += lp;
            return lResult;
        });
    };
    m_pQueue->PostEvent(note("posted ", 0), 1);
    EXPECT_EQ(m_pQueue->SendEvent(note("sent ", 42)), 42);
    EXPECT_EQ(strOrder, "posted sent ");
    ExpectCounts(2, 2);
    EXPECT_EQ(RunOn(m_pThread,
                    [&] {
                        m_pQueue->PostEvent(note("later ", 0), 1);
                        return m_pQueue->SendEvent(note("nested ", 43));
                    }),
              43);
    RunOn(m_pThread, nullptr);
    EXPECT_EQ(strOrder, "posted sent nested later ");
    ExpectCounts(4, 4);
}

TEST_F(EventQueue, AStoppedThreadRunsWhatItHasAndRefusesTheRest) {
    ThreadGate aGate(m_pThread);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(m_pQueue->PostEvent(new TestEvent(m_counts), 1), 0);
    EXPECT_EQ(m_pThread->Stop(nullptr), 0);
    EXPECT_FALSE(m_pThread->GetEventQueue());
    EXPECT_EQ(m_pQueue->PostEvent(new TestEvent(m_counts), 1), 4010);
    EXPECT_EQ(m_pQueue->SendEvent(new TestEvent(m_counts)), 4010) << "without waiting";
    ExpectCounts(0, 2);
    aGate.Open();
    std::thread aOther([this] { EXPECT_EQ(m_pThread->Join(), 0); });
    EXPECT_EQ(m_pThread->Join(), 0);
    aOther.join();
    ExpectCounts(3, 5);
    EXPECT_EQ(m_pThread->Stop(nullptr), 0);
}

TEST_F(EventQueue, AThreadMayStopItselfButNotJoinItself) {
    EXPECT_EQ(RunOn(m_pThread,
                    [this] {
                        EXPECT_TRUE(m_pThread->IsCurrent());
                        const CmInt32 lJoined = m_pThread->Join();
                        m_pThread->Stop(nullptr);
                        return lJoined;
                    }),
              4010);
    EXPECT_EQ(m_pThread->Join(), 0);
    EXPECT_FALSE(m_pThread->IsCurrent());
    ACmThread* const pHost = CCmThreadManager::Instance()->GetThread(3);
    EXPECT_EQ(pHost->Stop(nullptr), 4010);
    EXPECT_EQ(pHost->Join(), 4010);
    EXPECT_EQ(CCmThreadManager::Instance()->GetThread(1), nullptr);
}

TEST_F(EventQueue, ARunTakesWhatWaitsAndANestedOneGoesOnWithIt) {
    Post([this] {
        m_strFired += "a(";
        PostName("new ");
        EXPECT_EQ(Run(), 3U);  // b and c, which the outer run has taken, and new
        m_strFired += ") ";
        return 0;
    });
    PostName("b ");
    PostName("c ");
    EXPECT_EQ(Run(), 1U);
    EXPECT_EQ(m_strFired, "a(b c new ) ");
    m_strFired.clear();
    Post([this] { return PostName("next run"); });
    EXPECT_EQ(Run(), 1U);
    EXPECT_EQ(m_strFired, "") << "what is posted meanwhile waits";
    EXPECT_EQ(Run(), 1U);
    EXPECT_EQ(Run(), 0U);
    EXPECT_EQ(m_strFired, "next run");
    ExpectCounts(6, 6);
}

TEST_F(EventQueue, AnExceptionPassesAndTheRestWaits) {
    Post([]() -> CmInt32 { throw std::runtime_error("a host's own"); });
    PostName("rest");
    EXPECT_THROW(CCmCallerThread::RunPending(), std::runtime_error);
    ExpectCounts(1, 1);
    EXPECT_EQ(Run(), 1U);
    EXPECT_EQ(m_strFired, "rest");
}

TEST_F(EventQueue, OneThreadAtATimeIsAttachedAndRepeatsNest) {
    EXPECT_EQ(CCmCallerThread::Attach(), 0);
    ACmThread* const pHost = CCmThreadManager::Instance()->GetThread(3);
    std::thread([] {
        const CCmCallerThreadGuard aGuard;
        EXPECT_EQ(aGuard.GetResult(), 4010);
        EXPECT_EQ(CCmCallerThread::Detach(), 4010);
        EXPECT_EQ(CCmCallerThread::RunPending(), 4010);
        CmUint32 dwCount = 99;
        EXPECT_EQ(CCmCallerThread::WaitAndRun(1000, &dwCount), 4010);
        EXPECT_EQ(dwCount, 0U);
        EXPECT_EQ(CCmCallerThread::SetWakeUp([] {}), 4010);
        EXPECT_FALSE(CCmCallerThread::IsCurrent());
    }).join();
    EXPECT_EQ(CCmCallerThread::Detach(), 0);
    EXPECT_TRUE(CCmCallerThread::IsCurrent());
    PostName("dropped");
    const CRefPtr<ICmEventQueue> pOld = HostQueue();
    m_attached.reset();
    ExpectCounts(0, 1);
    EXPECT_FALSE(CCmCallerThread::IsCurrent());
    EXPECT_FALSE(pHost->GetEventQueue());
    EXPECT_EQ(CCmThreadManager::Instance()->GetThread(3), nullptr);
    EXPECT_EQ(pOld->PostEvent(new TestEvent(m_counts), 1), 4010);
    EXPECT_EQ(CCmCallerThread::RunPending(), 4010);
    EXPECT_EQ(CCmCallerThread::Detach(), 4010);

    std::thread([this] {  // now another one may
        const CCmCallerThreadGuard aGuard;
        EXPECT_EQ(aGuard.GetResult(), 0);
        PostName("there");
        EXPECT_EQ(Run(), 1U);
    })
        .join();
    EXPECT_EQ(m_strFired, "there");
    EXPECT_FALSE(pHost->GetEventQueue()) << "the first attachment is over for good";
    ExpectCounts(1, 3);
}

TEST_F(EventQueue, ASenderLearnsThatTheQueueWasDropped) {
    const CRefPtr<ICmEventQueue> pHostQueue = HostQueue();
    Signal aWaits;
    CCmCallerThread::SetWakeUp([&] { aWaits.Raise(); });
    std::thread aSender([&] { EXPECT_EQ(pHostQueue->SendEvent(new TestEvent(m_counts)), 4010); });
    aWaits.Wait();
    m_attached.reset();
    aSender.join();
    ExpectCounts(0, 1);
}

TEST_F(EventQueue, TheWakeUpComesWhenResultsBeginToWait) {
    int nWoken = 0;
    const auto wake = [&] { ++nWoken; };
    const auto expectWoken = [&](int nTimes, const char* lpWhen) {
        EXPECT_EQ(nWoken, nTimes) << lpWhen;
        nWoken = 0;
    };
    EXPECT_EQ(CCmCallerThread::SetWakeUp(wake), 0);
    expectWoken(0, "nothing waits");
    PostName("a");
    expectWoken(1, "something began to wait");
    PostName("b");
    expectWoken(0, "something waited already");
    EXPECT_EQ(CCmCallerThread::SetWakeUp(wake), 0);
    expectWoken(1, "installed while something waits");
    Post([this] { return PostName("c"); });
    Run();
    expectWoken(1, "posted by what ran, for the next run");
    Post([&] { return CCmCallerThread::SetWakeUp({}); });
    Run();
    nWoken = 0;
    PostName("d");
    expectWoken(0, "removed");
    EXPECT_EQ(CCmCallerThread::SetWakeUp(wake), 0);
    m_attached.reset();
    m_attached.emplace();
    nWoken = 0;
    PostName("e");
    expectWoken(0, "removed by detaching");
    EXPECT_EQ(Run(), 1U);
}

TEST_F(EventQueue, WaitingEndsWithWhatComesIn) {
    CmUint32 dwCount = 99;
    EXPECT_EQ(CCmCallerThread::WaitAndRun(0, &dwCount), 0);
    EXPECT_EQ(dwCount, 0U);
    EXPECT_EQ(CCmCallerThread::WaitAndRun(1, &dwCount), 0);
    EXPECT_EQ(dwCount, 0U);
    const CRefPtr<ICmEventQueue> pHostQueue = HostQueue();
    for (int i = 0; i < 200; ++i) {  // there and back: every sleep has to be ended
        m_pQueue->PostEvent(
            new TestEvent(m_counts,
                          [&] { return pHostQueue->PostEvent(new TestEvent(m_counts), 1); }),
            1);
        EXPECT_EQ(CCmCallerThread::WaitAndRun(100'000, &dwCount), 0);
        EXPECT_EQ(dwCount, 1U);
    }
    PostName("waits");
    EXPECT_EQ(CCmCallerThread::WaitAndRun(0xFFFFFFFF, &dwCount), 0);
    EXPECT_EQ(dwCount, 1U);
}
