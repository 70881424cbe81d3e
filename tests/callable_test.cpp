#include <thread>

#include "tests/support/HostTest.h"

TEST(Callable, ReplacingASinkWaitsForCallsOfAllEarlierSinks) {
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
