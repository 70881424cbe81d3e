#include <stdexcept>
#include <thread>

#include "tests/support/HostTest.h"

// The host's callables: the trace sink and the wake-up.

TEST(Callable, AnEarlierSinkIsWaitedForWhoeverReplacedIt) {
    CCmT120Trace* const pTrace = CCmT120Trace::instance();
    Signal aInside, aGo;
    std::atomic<bool> bEnded{false};
    pTrace->SetSink([&](CmInt32, const char*) {
        pTrace->SetSink([](CmInt32, const char*) {});
        aInside.Raise();
        aGo.Wait();
        bEnded = true;
    });
    std::thread aTracing([&] { pTrace->trace_string(CCmT120Trace::Level_Error, "line"); });
    aInside.Wait();
    std::thread aSetting([&] {
        pTrace->SetSink({});
        EXPECT_TRUE(bEnded) << "what the first sink uses may be gone now";
    });
    aGo.Raise();
    aSetting.join();
    aTracing.join();
}

TEST(Callable, ASinkGetsLinesOfItsOwnLevelOnly) {
    CCmT120Trace* const pTrace = CCmT120Trace::instance();
    std::atomic<bool> bStop{false};
    std::thread aTracing([&] {
        while (!bStop) pTrace->trace_string(CCmT120Trace::Level_Info, "info");
    });
    std::atomic<int> nWrong{0};
    for (int i = 0; i < 2000; ++i) {
        pTrace->SetSink([](CmInt32, const char*) {}, CCmT120Trace::Level_Info);
        pTrace->SetSink([&](CmInt32, const char*) { ++nWrong; }, CCmT120Trace::Level_Error);
    }
    bStop = true;
    aTracing.join();
    pTrace->SetSink({});
    EXPECT_EQ(nWrong, 0);
}

using WakeUp = HostTest;

TEST_F(WakeUp, ComesAgainForWhatACallbackThatThrewLeftBehind) {
    EventCounts aCounts;
    int nWakeUps = 0;
    ASSERT_EQ(CCmCallerThread::SetWakeUp([&] { ++nWakeUps; }), 0);
    const CRefPtr<ICmEventQueue> pQueue =
        CCmThreadManager::Instance()->GetThread(CCmThreadManager::Thread_Caller)->GetEventQueue();
    pQueue->PostEvent(
        new TestEvent(aCounts, []() -> CmInt32 { throw std::runtime_error("a host's own"); }), 1);
    pQueue->PostEvent(new TestEvent(aCounts), 1);
    EXPECT_EQ(nWakeUps, 1);
    CmUint32 dwRun = 0;
    EXPECT_THROW(CCmCallerThread::RunPending(&dwRun), std::runtime_error);
    EXPECT_EQ(dwRun, 1U);
    EXPECT_EQ(nWakeUps, 2);
    EXPECT_EQ(CCmCallerThread::RunPending(&dwRun), 0);
    EXPECT_EQ(dwRun, 1U);
    EXPECT_EQ(aCounts.nDisposed, 2);
}

TEST_F(WakeUp, ACallableOfAnEarlierAttachmentEndsWithIt) {
    int nEarlier = 0, nLater = 0;
    ASSERT_EQ(CCmCallerThread::SetWakeUp([&] { ++nEarlier; }), 0);
    m_attached.reset();
    m_attached.emplace();
    ASSERT_EQ(CCmCallerThread::SetWakeUp([&] { ++nLater; }), 0);
    EventCounts aCounts;
    CCmThreadManager::Instance()->GetThread(3)->GetEventQueue()->PostEvent(new TestEvent(aCounts),
                                                                           1);
    EXPECT_EQ(nEarlier, 0);
    EXPECT_EQ(nLater, 1);
    EXPECT_EQ(CCmCallerThread::RunPending(), 0);  // the event counts, so it ends before its counts
}
