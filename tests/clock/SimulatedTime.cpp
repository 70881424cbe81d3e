#include "tests/clock/SimulatedTime.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <list>
#include <map>

namespace {

using Nanoseconds = std::int64_t;
constexpr Nanoseconds c_nSecond = 1'000'000'000;
constexpr Nanoseconds c_nNever = std::numeric_limits<Nanoseconds>::max();
constexpr Nanoseconds c_nLook = 1'000;            // what a look at the clock takes
constexpr Nanoseconds c_nCoarseStep = 4'000'000;  // of the coarse clock

/// A thread that waits, on its stack.
struct tagWaiter {
    Nanoseconds nDeadline;
    const void* pCondition;  // or, for poll:
    pollfd* pFiles;
    nfds_t nFiles;
    bool bTimedOut = false;
    sem_t aWake{};
};

/// The mutex guards it. Nothing that this file replaces is called with it locked, except by actions
/// and observers, which run while no other thread does.
struct tagWorld {
    Nanoseconds nNow = 1'700'000'000 * c_nSecond;
    int nRunning = 1;
    std::list<tagWaiter*> lstWaiters;
    std::multimap<Nanoseconds, std::function<void()>> mapActions;
    std::function<void(SimulatedTime::Clock::time_point)> aObserver;
};

pthread_mutex_t s_aMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

class WorldLock {
 public:
    WorldLock() { pthread_mutex_lock(&s_aMutex); }
    ~WorldLock() { pthread_mutex_unlock(&s_aMutex); }
    WorldLock(const WorldLock&) = delete;
    WorldLock& operator=(const WorldLock&) = delete;
};

tagWorld& World() {  // not destroyed, because threads may outlive main
    static tagWorld* const s_pWorld = new tagWorld;
    return *s_pWorld;
}

SimulatedTime::Clock::time_point TimePoint(Nanoseconds nTime) {
    return SimulatedTime::Clock::time_point(std::chrono::nanoseconds(nTime));
}

int RealPoll(pollfd* pFiles, nfds_t nFiles) {
    const timespec aNow{};
    return static_cast<int>(syscall(SYS_ppoll, pFiles, nFiles, &aNow, nullptr, 0));
}

void Wake(std::list<tagWaiter*>::iterator itWaiter, bool bTimedOut) {
    tagWaiter* const pWaiter = *itWaiter;
    World().lstWaiters.erase(itWaiter);
    ++World().nRunning;
    pWaiter->bTimedOut = bTimedOut;
    sem_post(&pWaiter->aWake);
}

bool WakePoll() {
    auto& lstWaiters = World().lstWaiters;
    const auto it = std::find_if(lstWaiters.begin(), lstWaiters.end(), [](const tagWaiter* p) {
        return p->pFiles && RealPoll(p->pFiles, p->nFiles) != 0;
    });
    if (it == lstWaiters.end()) return false;
    Wake(it, false);
    return true;
}

/// Called when no thread runs. Wakes one.
void GoOn() {
    tagWorld& aWorld = World();
    while (!WakePoll()) {
        if (aWorld.aObserver) aWorld.aObserver(TimePoint(aWorld.nNow));
        const auto it = std::min_element(
            aWorld.lstWaiters.begin(), aWorld.lstWaiters.end(),
            [](const tagWaiter* a, const tagWaiter* b) { return a->nDeadline < b->nDeadline; });
        const auto itAction = aWorld.mapActions.begin();
        const bool bAction =
            itAction != aWorld.mapActions.end() && itAction->first <= (*it)->nDeadline;
        const Nanoseconds nNext = bAction ? itAction->first : (*it)->nDeadline;
        if (nNext == c_nNever) {
            std::fputs("all threads wait for ever\n", stderr);
            std::abort();
        }
        aWorld.nNow = std::max(aWorld.nNow, nNext);
        if (!bAction) return Wake(it, true);
        const std::function<void()> aAction = std::move(itAction->second);
        aWorld.mapActions.erase(itAction);
        aAction();
    }
}

void Rest() {
    if (--World().nRunning == 0) GoOn();
}

/// Returns whether the deadline has passed. Unlocks the mutex, if there is one, while it waits.
bool Wait(tagWaiter& aWaiter, pthread_mutex_t* pMutex) {
    sem_init(&aWaiter.aWake, 0, 0);
    {
        const WorldLock aLock;
        World().lstWaiters.push_back(&aWaiter);
        if (pMutex) pthread_mutex_unlock(pMutex);
        Rest();
    }
    while (sem_wait(&aWaiter.aWake) != 0) {
    }
    sem_destroy(&aWaiter.aWake);
    if (pMutex) pthread_mutex_lock(pMutex);
    return aWaiter.bTimedOut;
}

int WaitForCondition(const void* pCondition, pthread_mutex_t* pMutex, const timespec* pLimit) {
    tagWaiter aWaiter{pLimit ? pLimit->tv_sec * c_nSecond + pLimit->tv_nsec : c_nNever, pCondition,
                      nullptr, 0};
    return Wait(aWaiter, pMutex) ? ETIMEDOUT : 0;
}

int Signal(const void* pCondition, bool bAll) {
    const WorldLock aLock;
    auto& lstWaiters = World().lstWaiters;
    for (auto it = lstWaiters.begin(); it != lstWaiters.end();) {
        const auto itThis = it++;
        if ((*itThis)->pCondition != pCondition) continue;
        Wake(itThis, false);
        if (!bAll) break;
    }
    return 0;
}

struct tagStart {
    void* (*pFunction)(void*);
    void* pArgument;
};

void* RunThread(void* pStart) {
    const tagStart aStart = *static_cast<tagStart*>(pStart);
    delete static_cast<tagStart*>(pStart);
    void* const pResult = aStart.pFunction(aStart.pArgument);
    const WorldLock aLock;
    Rest();
    return pResult;
}

}  // namespace

void SimulatedTime::At(Clock::time_point aTime, std::function<void()> aAction) {
    const WorldLock aLock;
    const auto nTime = std::chrono::nanoseconds(aTime.time_since_epoch()).count();
    World().mapActions.emplace(nTime, std::move(aAction));
}

void SimulatedTime::OnRest(std::function<void(Clock::time_point)> aObserver) {
    const WorldLock aLock;
    World().aObserver = std::move(aObserver);
}

extern "C" {

int clock_gettime(clockid_t aClock, timespec* pTime) noexcept {
    const WorldLock aLock;
    Nanoseconds nTime = World().nNow += c_nLook;
    if (aClock == CLOCK_MONOTONIC_COARSE) nTime -= nTime % c_nCoarseStep;
    *pTime = {nTime / c_nSecond, nTime % c_nSecond};
    return 0;
}

int clock_getres(clockid_t aClock, timespec* pTime) noexcept {
    *pTime = {0, aClock == CLOCK_MONOTONIC_COARSE ? c_nCoarseStep : 1};
    return 0;
}

int poll(pollfd* pFiles, nfds_t nFiles, int nMilliseconds) {
    const int nReady = RealPoll(pFiles, nFiles);
    if (nReady != 0 || nMilliseconds == 0) return nReady;
    Nanoseconds nDeadline = c_nNever;
    if (nMilliseconds > 0) {
        const WorldLock aLock;
        nDeadline = World().nNow + nMilliseconds * 1'000'000LL;
    }
    tagWaiter aWaiter{nDeadline, nullptr, pFiles, nFiles};
    Wait(aWaiter, nullptr);
    return RealPoll(pFiles, nFiles);
}

int pthread_cond_wait(pthread_cond_t* pCondition, pthread_mutex_t* pMutex) {
    return WaitForCondition(pCondition, pMutex, nullptr);
}

int pthread_cond_timedwait(pthread_cond_t* pCondition, pthread_mutex_t* pMutex,
                           const timespec* pLimit) {
    return WaitForCondition(pCondition, pMutex, pLimit);
}

int pthread_cond_clockwait(pthread_cond_t* pCondition, pthread_mutex_t* pMutex, clockid_t,
                           const timespec* pLimit) {
    return WaitForCondition(pCondition, pMutex, pLimit);
}

int pthread_cond_signal(pthread_cond_t* pCondition) noexcept { return Signal(pCondition, false); }

int pthread_cond_broadcast(pthread_cond_t* pCondition) noexcept { return Signal(pCondition, true); }

int pthread_create(pthread_t* pThread, const pthread_attr_t* pAttributes, void* (*pFunction)(void*),
                   void* pArgument) noexcept {
    using Create = decltype(&pthread_create);
    static const auto s_pCreate = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    {
        const WorldLock aLock;
        ++World().nRunning;
    }
    return s_pCreate(pThread, pAttributes, RunThread, new tagStart{pFunction, pArgument});
}

}  // extern "C"
