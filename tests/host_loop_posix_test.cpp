#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "tests/support/HostTest.h"

namespace {

bool IsReadable(int nDescriptor) {
    pollfd aPoll{nDescriptor, POLLIN, 0};
    return ::poll(&aPoll, 1, 0) == 1 && (aPoll.revents & POLLIN) != 0;
}

}  // namespace

using HostLoop = HostTest;

TEST_F(HostLoop, TheDescriptorIsReadableExactlyWhileSomethingWaits) {
    EventCounts aCounts;
    int nDescriptor = -1;
    const auto post = [&](TestEvent::Work aWork = nullptr) {
        return CCmThreadManager::Instance()->GetThread(3)->GetEventQueue()->PostEvent(
            new TestEvent(aCounts, std::move(aWork)), 1);
    };
    const auto readable = [&] { return IsReadable(nDescriptor); };
    post();
    ASSERT_EQ(CCmCallerThread::GetWakeDescriptor(nDescriptor), 0);
    EXPECT_TRUE(readable()) << "made while something waits";
    post();
    int nSame = -1;
    EXPECT_EQ(CCmCallerThread::GetWakeDescriptor(nSame), 0);
    EXPECT_EQ(nSame, nDescriptor);
    EXPECT_EQ(::fcntl(nDescriptor, F_GETFD), FD_CLOEXEC);
    CCmCallerThread::RunPending();
    EXPECT_FALSE(readable());

    post([&] {
        EXPECT_TRUE(readable()) << "another one of the batch waits";
        return 0;
    });
    post([&] {
        EXPECT_FALSE(readable()) << "this is the last one";
        post();
        EXPECT_TRUE(readable());
        return 0;
    });
    EXPECT_TRUE(readable());
    CCmCallerThread::RunPending();
    EXPECT_TRUE(readable()) << "posted meanwhile";
    CCmCallerThread::RunPending();
    EXPECT_FALSE(readable());

    post([]() -> CmInt32 { throw std::runtime_error("a host's own"); });
    post();
    EXPECT_THROW(CCmCallerThread::RunPending(), std::runtime_error);
    EXPECT_TRUE(readable()) << "the rest of the batch";
    CCmCallerThread::RunPending();
    EXPECT_FALSE(readable());
}

TEST_F(HostLoop, TheDescriptorBelongsToTheAttachment) {
    int nDescriptor = -1;
    ASSERT_EQ(CCmCallerThread::GetWakeDescriptor(nDescriptor), 0);
    std::thread([] {
        int nNone = 5;
        EXPECT_EQ(CCmCallerThread::GetWakeDescriptor(nNone), 4010);
        EXPECT_EQ(nNone, -1);
    }).join();
    m_attached.reset();
    EXPECT_EQ(::fcntl(nDescriptor, F_GETFD), -1) << "closed";
    EXPECT_EQ(CCmCallerThread::GetWakeDescriptor(nDescriptor), 4010);
}

TEST_F(HostLoop, APollingHostHearsOfEveryOpen) {
    int nDescriptor = -1;
    ASSERT_EQ(CCmCallerThread::GetWakeDescriptor(nDescriptor), 0);
    Recording aRecording(Async, &m_sink);
    for (int i = 0; i < 50; ++i) {
        aRecording.Open("a");
        pollfd aPoll{nDescriptor, POLLIN, 0};
        ASSERT_EQ(::poll(&aPoll, 1, 100'000), 1);
        CCmCallerThread::RunPending();
        EXPECT_EQ(m_sink.Take(), "Open 0");
    }
}

TEST_F(HostLoop, TheWorkerLeavesTheHostsSignalsToTheHost) {
    const auto blocked = [](int nSignal) {
        sigset_t aMask;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &aMask);
        return sigismember(&aMask, nSignal);
    };
    Worker();
    EXPECT_EQ(blocked(SIGTERM), 0) << "the host's own mask is as it was";
    for (const int nSignal : {SIGTERM, SIGINT, SIGCHLD, SIGALRM})
        EXPECT_EQ(RunOn(Worker(), [&] { return blocked(nSignal); }), 1) << nSignal;
    for (const int nSignal : {SIGSEGV, SIGBUS, SIGFPE})
        EXPECT_EQ(RunOn(Worker(), [&] { return blocked(nSignal); }), 0) << nSignal;
}
