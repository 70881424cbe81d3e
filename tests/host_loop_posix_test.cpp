#include <fcntl.h>
#include <poll.h>
#include <signal.h>

#include <stdexcept>

#include "tests/support/HostTest.h"

using HostLoop = HostTest;

TEST_F(HostLoop, TheDescriptorIsReadableExactlyWhileSomethingWaits) {
    EventCounts aCounts;
    int nDescriptor = -1;
    const auto post = [&](TestEvent::Work aWork = nullptr) {
        return CCmThreadManager::Instance()->GetThread(3)->GetEventQueue()->PostEvent(
            new TestEvent(aCounts, std::move(aWork)), 1);
    };
    const auto readable = [&] {
        pollfd aPoll{nDescriptor, POLLIN, 0};
        return ::poll(&aPoll, 1, 0) == 1;
    };
    post();
    ASSERT_EQ(CCmCallerThread::GetWakeDescriptor(nDescriptor), 0);
    EXPECT_TRUE(readable()) << "made while something waits";
    EXPECT_EQ(::fcntl(nDescriptor, F_GETFD), FD_CLOEXEC);
    CCmCallerThread::RunPending();
    EXPECT_FALSE(readable());
    post([&] {
        EXPECT_TRUE(readable()) << "another one of the batch waits";
        return 0;
    });
    post([&] {
        EXPECT_FALSE(readable()) << "this is the last one";
        return post();
    });
    CCmCallerThread::RunPending();
    EXPECT_TRUE(readable()) << "posted meanwhile";
    CCmCallerThread::RunPending();
    EXPECT_FALSE(readable());
    post([&] { return post(); });
    post([&] {
        EXPECT_TRUE(readable()) << "this one is the last, but another was posted";
        return 0;
    });
    CCmCallerThread::RunPending();
    CCmCallerThread::RunPending();
    post([]() -> CmInt32 { throw std::runtime_error("a host's own"); });
    post();
    EXPECT_THROW(CCmCallerThread::RunPending(), std::runtime_error);
    EXPECT_TRUE(readable()) << "the rest of the batch";
    m_attached.reset();
    EXPECT_EQ(::fcntl(nDescriptor, F_GETFD), -1) << "closed";
    EXPECT_EQ(CCmCallerThread::GetWakeDescriptor(nDescriptor), 4010);
    EXPECT_EQ(nDescriptor, -1);
}

TEST_F(HostLoop, TheWorkerLeavesTheHostsSignalsToTheHost) {
    const auto blocked = [](int nSignal) {
        sigset_t aMask;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &aMask);
        return sigismember(&aMask, nSignal);
    };
    const auto blockedThere = [&](int nSignal) {
        return RunOn(Worker(), [&] { return blocked(nSignal); });
    };
    EXPECT_EQ(blockedThere(SIGUSR1), 1);
    EXPECT_EQ(blockedThere(SIGSEGV), 0) << "a fault stays a fault";
    EXPECT_EQ(blocked(SIGUSR1), 0) << "the host's own mask is as it was";
    sigset_t aEnding;
    ::sigemptyset(&aEnding);
    for (int nSignal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        EXPECT_EQ(blockedThere(nSignal), 0) << "it ends the process";
        sigaddset(&aEnding, nSignal);
    }
    CacheFileShutdown();
    ::pthread_sigmask(SIG_BLOCK, &aEnding, nullptr);
    for (int nSignal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT})
        EXPECT_EQ(blockedThere(nSignal), 1) << "the host waits for it elsewhere";
    ::pthread_sigmask(SIG_UNBLOCK, &aEnding, nullptr);
}
