#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "platform/CmTraceLine.h"
#include "tests/support/HostTest.h"

// A host forks while its threads are inside the library.

namespace {

/// Forks and returns what aChild returns in the child; -1 if it does not return.
int InChild(const std::function<int()>& aChild) {
    const pid_t nChild = ::fork();
    if (nChild == 0) {
        ::alarm(60);
        ::_exit(aChild());
    }
    int nStatus = 0;
    ::waitpid(nChild, &nStatus, 0);
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
}

/// Removes the callables that the child inherited. Returns 0, or the number of the failed call.
int Detach() {
    if (CCmT120Trace::instance()->SetSink({}) != 0) return 1;
    if (CCmCallerThread::SetWakeUp({}) != 0) return 2;
    return CCmCallerThread::Detach() == 0 ? 0 : 3;
}

class Fork : public HostTest {
 protected:
    EventCounts m_counts;
};

}  // namespace

/// The child records its own file, while bytes of its parent are old enough to be flushed.
TEST_F(Fork, AChildFlushesNothingOfItsParentByAge) {
    CCacheFileManager::SetGatherAge(60'000);  // a slow machine must not flush during the writes
    const auto growOld = [] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); };
    Recording aRecording(Sync, nullptr);
    Recording aAsync(Async, nullptr);
    const CmUint32 dwFile = aRecording.Open("a");
    const CmUint32 dwAsync = aAsync.Open("b");
    Settle();
    EXPECT_EQ(aRecording.Write(dwFile, "parent"), 0);
    EXPECT_EQ(aAsync.Write(dwAsync, "parent"), 0);
    CCacheFileManager::SetGatherAge(1);
    growOld();
    const int nChild = InChild([&] {
        Recording aOwn(Sync, nullptr);
        const CmUint32 dwOwn = aOwn.Open("c");
        if (aOwn.Write(dwOwn, "child") != 0) return 1;
        growOld();
        CCacheFileManager::FlushAged();
        if (ReadBytes(Recording::PathOf("c")) != "child") return 2;
        return ReadBytes(Recording::PathOf("a")).empty() ? 0 : 3;
    });
    EXPECT_EQ(nChild, 0);
    CCacheFileManager::FlushAged();
    Settle();
    for (const char* const lpName : {"a", "b"}) ExpectFile(Recording::PathOf(lpName), "parent");
}

TEST_F(Fork, AChildCanDetachWhileOtherThreadsAreBusy) {
    std::atomic<bool> bEnd{false};
    int nPosted = 0;
    const auto flood = [&, pQueue = HostQueue()] {
        while (!bEnd) {
            TraceError("line ", nPosted);
            if (nPosted - m_counts.nDisposed >= 100) continue;  // a fork copies pending events
            ++nPosted;
            pQueue->PostEvent(new TestEvent(m_counts), 1);
        }
        return 0;
    };
    const auto busy =
        [](unsigned nTurns) {  // so that some forks occur during a call and some between calls
            for (volatile unsigned i = 0; i < nTurns;) i = i + 1;
        };
    std::atomic<unsigned> nCalls{0};
    CCmT120Trace::instance()->SetSink([&](CmInt32, const char*) { busy(++nCalls % 2 ? 500 : 0); });
    CCmCallerThread::SetWakeUp([&] { busy(++nCalls % 2 ? 500 : 0); });
    EventCounts aWork;
    Worker()->GetEventQueue()->PostEvent(new TestEvent(aWork, flood), 1);
    std::thread aOther([&] {  // replaces the sink, which waits for running calls
        while (!bEnd)
            CCmT120Trace::instance()->SetSink([&](CmInt32, const char*) { busy(++nCalls % 300); });
    });
    // A fork takes long under a sanitizer on a busy machine, so the time is limited too.
    const auto aEnough = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const auto isEnough = [&] { return std::chrono::steady_clock::now() > aEnough; };
    for (int i = 0; i < 200 && !HasFailure() && !(i >= 20 && isEnough()); ++i) {
        CCmCallerThread::RunPending();
        EXPECT_EQ(InChild(Detach), 0) << "fork " << i;
    }
    bEnd = true;
    aOther.join();
    Settle();
    CCmT120Trace::instance()->SetSink({});
    m_attached.reset();
    EXPECT_GT(nCalls, 0U);
}

TEST_F(Fork, AChildRunsNoEventsOfItsParent) {
    int nDescriptor = -1;
    ASSERT_EQ(CCmCallerThread::GetWakeDescriptor(nDescriptor), 0);
    HostQueue()->PostEvent(new TestEvent(m_counts), 1);
    EXPECT_EQ(InChild([] {
                  CmUint32 dwRun = 99;
                  if (CCmCallerThread::RunPending(&dwRun) != 0 || dwRun != 0) return 10;
                  return Detach();
              }),
              0)
        << "events of the parent do not run in the child";
    pollfd aPoll{nDescriptor, POLLIN, 0};
    EXPECT_EQ(::poll(&aPoll, 1, 0), 1) << "the descriptor of the parent is still readable";
    std::thread([] {  // the attached thread does not exist in the child
        EXPECT_EQ(InChild([] { return CCmCallerThread::Attach() == 0 ? Detach() : 11; }), 0);
    })
        .join();
    CmUint32 dwRun = 0;
    EXPECT_EQ(CCmCallerThread::RunPending(&dwRun), 0);
    EXPECT_EQ(dwRun, 1U);
    m_attached.reset();
}
