#include <fcntl.h>
#include <poll.h>
#include <signal.h>

#include <stdexcept>

#include "tests/support/HostTest.h"

using HostLoop = HostTest;

TEST_F(HostLoop, TheWakeUpAndTheDescriptorShowThatResultsWait) {
    EventCounts aCounts;
    int nDescriptor = -1, nWoken = 0;
    const auto install = [&] { return CCmCallerThread::SetWakeUp([&] { ++nWoken; }); };
    const auto post = [&](TestEvent::Work aWork = nullptr) {
        return HostQueue()->PostEvent(new TestEvent(aCounts, std::move(aWork)), 1);
    };
    const auto expect = [&](int nTimes, bool bReadable, const char* lpWhen) {
        EXPECT_EQ(std::exchange(nWoken, 0), nTimes) << lpWhen;
        pollfd aPoll{nDescriptor, POLLIN, 0};
        EXPECT_EQ(::poll(&aPoll, 1, 0) == 1, bReadable) << lpWhen;
        return CmInt32{0};
    };
    post();
    install();
    ASSERT_EQ(CCmCallerThread::GetWakeDescriptor(nDescriptor), 0);
    EXPECT_EQ(::fcntl(nDescriptor, F_GETFD), FD_CLOEXEC);
    expect(1, true, "made while something waits");
    post();
    expect(0, true, "something waited already");
    CCmCallerThread::RunPending();
    expect(0, false, "nothing waits");
    post([&] { return expect(1, true, "another one of the batch waits"); });
    post([&] { return expect(0, false, "this is the last one"), post(); });
    CCmCallerThread::RunPending();
    expect(1, true, "posted by what ran, for the next run");
    CCmCallerThread::RunPending();
    post([&] { return post(); });
    post([&] { return expect(2, true, "this one is the last, but another was posted"); });
    CCmCallerThread::RunPending();
    CCmCallerThread::RunPending();
    nWoken = 0;
    post([]() -> CmInt32 { throw std::runtime_error("a host's own"); });
    post();
    EXPECT_THROW(CCmCallerThread::RunPending(), std::runtime_error);
    expect(2, true, "posted, and left by what threw");
    m_attached.reset();
    EXPECT_EQ(::fcntl(nDescriptor, F_GETFD), -1) << "the descriptor is closed";
    EXPECT_EQ(CCmCallerThread::GetWakeDescriptor(nDescriptor), 4010);
    EXPECT_EQ(nDescriptor, -1);
    m_attached.emplace();
    post();
    EXPECT_EQ(nWoken, 0) << "removed by detaching";
    CCmCallerThread::RunPending();
}

TEST_F(HostLoop, TheDescriptorSignalsAnAgeAndRoom) {
    Recording aRecording(Async, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    Settle();
    pollfd aPoll{-1, POLLIN, 0};
    ASSERT_EQ(CCmCallerThread::GetWakeDescriptor(aPoll.fd), 0);
    const auto wait = [&] {
        CmUint32 dwRun = 99;
        EXPECT_EQ(::poll(&aPoll, 1, 60'000), 1);
        EXPECT_EQ(CCmCallerThread::RunPending(&dwRun), 0);
        EXPECT_EQ(dwRun, 0U);
        EXPECT_EQ(::poll(&aPoll, 1, 0), 0);
    };
    CCacheFileManager::SetGatherAge(20);
    EXPECT_EQ(aRecording.Write(dwHandle, "slow"), 0);
    wait();
    Settle();
    ExpectFile(Recording::PathOf("a"), "slow");

    CCacheFileManager::SetGatherAge(0);
    CCacheFileManager::SetRoomWakeUp(1);
    CCacheFileManager::SetPendingLimit(1);  // counts as 65,536
    ThreadGate aGate(Worker());
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(65'536)), 0);
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 4013);
    EXPECT_EQ(::poll(&aPoll, 1, 0), 0);
    aGate.Open();
    wait();
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 0);
}

TEST_F(HostLoop, TheWorkerTakesNoSignalsOfTheHost) {
    const auto blocked = [](int nSignal) {
        sigset_t aMask;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &aMask);
        return sigismember(&aMask, nSignal);
    };
    const auto blockedThere = [&](int nSignal) {
        return RunOn(Worker(), [&] { return blocked(nSignal); });
    };
    EXPECT_EQ(blockedThere(SIGUSR1), 1);
    EXPECT_EQ(blockedThere(SIGSEGV), 0) << "signals of faults are not blocked";
    EXPECT_EQ(blocked(SIGUSR1), 0) << "the mask of the host is unchanged";
    sigset_t aEnding;
    ::sigemptyset(&aEnding);
    for (int nSignal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        EXPECT_EQ(blockedThere(nSignal), 0) << "signals that end the process are not blocked";
        sigaddset(&aEnding, nSignal);
    }
    CacheFileShutdown();
    ::pthread_sigmask(SIG_BLOCK, &aEnding, nullptr);
    for (int nSignal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT})
        EXPECT_EQ(blockedThere(nSignal), 1) << "unless the host has blocked them";
    ::pthread_sigmask(SIG_UNBLOCK, &aEnding, nullptr);
}
