#include <functional>
#include <memory>
#include <thread>

#include "tests/support/HostTest.h"

TEST(Callable, ReplacingASinkWaitsForCallsOfAllEarlierSinks) {
    CCmT120Trace* const pTrace = CCmT120Trace::instance();
    Signal aInside, aGo;
    std::atomic<bool> bFreed{false};
    const auto freeSlowly = [&](void*) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        bFreed = true;
    };
    pTrace->SetSink([&, pHeld = std::shared_ptr<void>(nullptr, freeSlowly)](CmInt32, const char*) {
        pTrace->SetSink([](CmInt32, const char*) {});
        aInside.Raise();
        aGo.Wait();
    });
    std::thread aTracing([&] { pTrace->trace_string(CCmT120Trace::Level_Error, "line"); });
    aInside.Wait();
    std::thread aSetting([&] {
        pTrace->SetSink({});
        EXPECT_TRUE(bFreed) << "after SetSink the first sink and what it holds no longer exist";
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

TEST(Callable, NullsAreEmptyAndCopiesShareTheCallable) {
    using Callable = CCmCallable<int(int)>;
    using Function = int (*)(int);
    EXPECT_FALSE(Callable{} || Callable{nullptr} || Callable{Function{}} ||
                 Callable{std::function<int(int)>()});
    const auto pOwned = std::make_shared<int>(2);
    Callable aCallable([pOwned](int n) { return n + (*pOwned)++; });
    const Callable aCopy = aCallable;
    EXPECT_EQ(aCallable(1) + aCopy(1), 3 + 4);
    EXPECT_EQ(Callable(Function([](int n) { return -n; }))(7), -7);
    aCallable = {};
    EXPECT_EQ(pOwned.use_count(), 2) << "the copy still holds the callable";
}
