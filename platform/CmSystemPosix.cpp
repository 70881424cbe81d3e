#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <new>

#include "platform/CmSystem.h"

namespace {

std::atomic<pid_t> s_nProcess{0};  // the one that registered the first exit handler

#ifdef CLOCK_MONOTONIC_COARSE
constexpr clockid_t c_coarseClock = CLOCK_MONOTONIC_COARSE;
#else
constexpr clockid_t c_coarseClock = CLOCK_MONOTONIC;
#endif

std::int64_t Nanoseconds(const timespec& aTime) {
    return aTime.tv_sec * std::int64_t{1'000'000'000} + aTime.tv_nsec;
}

}  // namespace

std::int64_t CmCoarseTime() {
    timespec aTime{};
    ::clock_gettime(c_coarseClock, &aTime);
    return Nanoseconds(aTime);
}

std::int64_t CmCoarseStep() {
    timespec aStep{};
    ::clock_getres(c_coarseClock, &aStep);
    return Nanoseconds(aStep);
}

bool CCmWakeDescriptor::Open() {
    int aEnds[2];
    if (::pipe2(aEnds, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    m_nReadEnd = aEnds[0];
    m_nWriteEnd = aEnds[1];
    return true;
}

void CCmWakeDescriptor::Close() {
    if (!IsOpen()) return;
    ::close(m_nReadEnd);
    ::close(m_nWriteEnd);
    m_nReadEnd = m_nWriteEnd = -1;
}

void CCmWakeDescriptor::Signal() {
    // The write fails if the pipe is full, but then the pipe is readable already.
    const char cByte = 1;
    while (::write(m_nWriteEnd, &cByte, 1) < 0 && errno == EINTR) {
    }
}

void CCmWakeDescriptor::Clear() {
    char aBytes[16];
    for (;;) {
        const ssize_t nRead = ::read(m_nReadEnd, aBytes, sizeof aBytes);
        if (nRead == 0 || (nRead < 0 && errno != EINTR)) return;
    }
}

struct CCmSignalBlocker::tagSaved {
    sigset_t m_signals;
};

CCmSignalBlocker::CCmSignalBlocker() {
    static_assert(sizeof(tagSaved) <= sizeof m_saved, "the saved mask has to fit");
    // The mask is in a byte array of the object, so that CmSystem.h includes no system header.
    tagSaved* const pSaved = new (m_saved) tagSaved;
    sigset_t aBlocked;
    ::sigfillset(&aBlocked);
    for (int nKept :
         {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGTERM, SIGINT, SIGHUP, SIGQUIT})
        sigdelset(&aBlocked, nKept);
    ::pthread_sigmask(SIG_BLOCK, &aBlocked, &pSaved->m_signals);
}

CCmSignalBlocker::~CCmSignalBlocker() {
    tagSaved* const pSaved = reinterpret_cast<tagSaved*>(m_saved);
    ::pthread_sigmask(SIG_SETMASK, &pSaved->m_signals, nullptr);
}

bool CmRegisterExitHandler(void (*pHandler)()) {
    pid_t nNone = 0;
    s_nProcess.compare_exchange_strong(nNone, ::getpid());
    return std::atexit(pHandler) == 0;
}

bool CmIsForkedChild() { return ::getpid() != s_nProcess; }

bool CmRegisterForkHandlers(void (*pBefore)(), void (*pInParent)(), void (*pInChild)()) {
    return ::pthread_atfork(pBefore, pInParent, pInChild) == 0;
}
