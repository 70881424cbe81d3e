#include "tests/faults/Faults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <numeric>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr int c_nNever = -1;

// Most tests set these only while no worker is running.
std::atomic<Faults::Call> s_aCall{};
std::atomic<int> s_nNth{c_nNever};
std::atomic<bool> s_bForEver{false};
std::atomic<int> s_nErrno{0};
std::atomic<std::chrono::milliseconds> s_aWriteDelay{};
std::atomic<std::chrono::milliseconds> s_aSyncDelay{};

std::atomic<bool> s_bHoldSyncs{false};
std::atomic<std::uint64_t> s_qwFreeSpace{0};

std::atomic<int> s_nCalls{0};
std::atomic<int> s_nFailures{0};
std::atomic<int> s_nWrites{0};
std::mutex s_mutex;
std::function<void()> s_beforeFailure;  // guarded by s_mutex
std::atomic<bool> s_bOwed{false};       // half of a transfer was done, and the next call must fail

/// Returns whether this call must fail, and sets errno if so.
bool Fails(Faults::Call aCall) {
    if (s_nNth == c_nNever || aCall != s_aCall) return false;
    const int nCall = ++s_nCalls;
    if (nCall != s_nNth && !(s_bForEver && nCall > s_nNth)) return false;
    ++s_nFailures;
    errno = s_nErrno;
    return true;
}

/// Returns half of a transfer, in whole words, because the test files consist of words.
std::size_t HalfOf(std::size_t nBytes) { return nBytes / 2 & ~std::size_t{3}; }

/// Replaces the work that runs before a failure, and returns the earlier one.
std::function<void()> TakeWork(std::function<void()> aNext) {
    const std::lock_guard aLock(s_mutex);
    return std::exchange(s_beforeFailure, std::move(aNext));
}

/// Fails a transfer as the system does: one call transfers a part, and the next one fails.
template <class Transfer>
ssize_t Transferred(Faults::Call aCall, std::size_t nCount, Transfer aTransfer) {
    const bool bOwed = aCall == s_aCall && s_bOwed.exchange(false);
    if (!bOwed && !Fails(aCall)) return aTransfer(nCount);
    if (!bOwed && HalfOf(nCount) > 0) {
        s_bOwed = true;
        return aTransfer(HalfOf(nCount));
    }
    const int nErrno = s_nErrno;
    if (const auto aWork = TakeWork({})) aWork();
    errno = nErrno;
    return aCall == Faults::Call_write && nErrno == 0 ? 0 : -1;
}

void BeforeWrite() {
    ++s_nWrites;
    std::this_thread::sleep_for(s_aWriteDelay.load());
}

}  // namespace

namespace Faults {

const char* NameOf(Call aCall) {
    static const char* const s_aNames[] = {
#define FAULT_NAME(name, failure) #name,
        FAULT_CALLS(FAULT_NAME)
#undef FAULT_NAME
    };
    return s_aNames[aCall];
}

int TakeWrites() { return s_nWrites.exchange(0); }

void Arm(Call aCall, int nNth, bool bForEver, int nErrno) {
    s_aCall = aCall;
    s_bForEver = bForEver;
    s_nErrno = nErrno;
    s_nCalls = s_nFailures = 0;
    s_bOwed = false;
    s_nNth = nNth;
}

int Disarm() {
    s_nNth = c_nNever;
    s_bOwed = false;
    return s_nFailures;
}

void RunBeforeFailure(std::function<void()> aWork) { TakeWork(std::move(aWork)); }

void HoldSyncs(bool bHold) { s_bHoldSyncs = bHold; }

void SetFreeSpace(std::uint64_t qwBytes) { s_qwFreeSpace = qwBytes; }

void SetWriteDelay(std::chrono::milliseconds aDelay) { s_aWriteDelay = aDelay; }

void SetSyncDelay(std::chrono::milliseconds aDelay) { s_aSyncDelay = aDelay; }

}  // namespace Faults

// With a 32-bit long, the system's calls with 64-bit positions have other names.
#if __SIZEOF_LONG__ == 4
#define __wrap_fcntl __wrap_fcntl64
#define __real_fcntl __real_fcntl64
#define __wrap_fstat __wrap_fstat64
#define __real_fstat __real_fstat64
#define __wrap_fstatvfs __wrap_fstatvfs64
#define __wrap_ftruncate __wrap_ftruncate64
#define __real_ftruncate __real_ftruncate64
#define __wrap_lseek __wrap_lseek64
#define __real_lseek __real_lseek64
#define __wrap_openat __wrap_openat64
#define __real_openat __real_openat64
#define __wrap_pread __wrap_pread64
#define __real_pread __real_pread64
#endif

// The linker calls __wrap_NAME for NAME, and NAME for __real_NAME.
#define FAULT_WRAP(type, name, parameters, failure, arguments) \
    type __real_##name parameters;                             \
    type __wrap_##name parameters {                            \
        if (Fails(Faults::Call_##name)) return failure;        \
        return __real_##name arguments;                        \
    }

extern "C" {

FAULT_WRAP(int, fstat, (int nFile, struct stat* p), -1, (nFile, p))
FAULT_WRAP(std::FILE*, fdopen, (int nFile, const char* lpMode), nullptr, (nFile, lpMode))
FAULT_WRAP(int, faccessat, (int nDirectory, const char* lpPath, int nMode, int nFlags), -1,
           (nDirectory, lpPath, nMode, nFlags))
FAULT_WRAP(int, mkdirat, (int nDirectory, const char* lpPath, mode_t nMode), -1,
           (nDirectory, lpPath, nMode))
FAULT_WRAP(off_t, lseek, (int nFile, off_t nTo, int nFrom), -1, (nFile, nTo, nFrom))
FAULT_WRAP(int, ftruncate, (int nFile, off_t nSize), -1, (nFile, nSize))
FAULT_WRAP(int, rename, (const char* lpFrom, const char* lpTo), -1, (lpFrom, lpTo))

int __wrap_fsync(int) {
    return Fails(Faults::Call_fsync) ? -1 : 0;
}  // skipped: no test needs the disk

int __wrap_fdatasync(int) {
    std::this_thread::sleep_for(s_aSyncDelay.load());
    while (s_bHoldSyncs) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return Fails(Faults::Call_fdatasync) ? -1 : 0;
}

int __wrap_fstatvfs(int, struct statvfs* p) {
    *p = {};
    p->f_frsize = 1;
    p->f_bavail = s_qwFreeSpace;
    return 0;
}

/// The library changes flags, and duplicates descriptors; only the latter fails.
int __real_fcntl(int nFile, int nCommand, ...);
int __wrap_fcntl(int nFile, int nCommand, ...) {
    std::va_list aArguments;
    va_start(aArguments, nCommand);
    const int nArgument = va_arg(aArguments, int);
    va_end(aArguments);
    const bool bFails = nCommand == F_DUPFD_CLOEXEC && Fails(Faults::Call_fcntl);
    return bFails ? -1 : __real_fcntl(nFile, nCommand, nArgument);
}

int __real_openat(int nDirectory, const char* lpPath, int nFlags, ...);
int __wrap_openat(int nDirectory, const char* lpPath, int nFlags, ...) {
    std::va_list aArguments;
    va_start(aArguments, nFlags);
    const mode_t nMode = nFlags & O_CREAT ? va_arg(aArguments, mode_t) : 0;
    va_end(aArguments);
    return Fails(Faults::Call_openat) ? -1 : __real_openat(nDirectory, lpPath, nFlags, nMode);
}

ssize_t __real_write(int nFile, const void* lp, std::size_t nCount);
ssize_t __wrap_write(int nFile, const void* lp, std::size_t nCount) {
    if (nCount == 1) return __real_write(nFile, lp, nCount);  // a wake-up, not file data
    BeforeWrite();
    return Transferred(Faults::Call_write, nCount,
                       [&](std::size_t nPart) { return __real_write(nFile, lp, nPart); });
}

/// Counts as a write.
ssize_t __real_writev(int nFile, const struct iovec* lp, int nCount);
ssize_t __wrap_writev(int nFile, const struct iovec* lp, int nCount) {
    BeforeWrite();
    std::vector<iovec> vecBlocks(lp, lp + nCount);
    const std::size_t nAll =
        std::accumulate(vecBlocks.begin(), vecBlocks.end(), std::size_t{0},
                        [](std::size_t n, const iovec& aBlock) { return n + aBlock.iov_len; });
    return Transferred(Faults::Call_write, nAll, [&](std::size_t nPart) {
        for (iovec& aBlock : vecBlocks) nPart -= aBlock.iov_len = std::min(aBlock.iov_len, nPart);
        return __real_writev(nFile, vecBlocks.data(), nCount);
    });
}

ssize_t __real_read(int nFile, void* lp, std::size_t nCount);
ssize_t __wrap_read(int nFile, void* lp, std::size_t nCount) {
    return Transferred(Faults::Call_read, nCount,
                       [&](std::size_t nPart) { return __real_read(nFile, lp, nPart); });
}

ssize_t __real_pread(int nFile, void* lp, std::size_t nCount, off_t nAt);
ssize_t __wrap_pread(int nFile, void* lp, std::size_t nCount, off_t nAt) {
    return Transferred(Faults::Call_pread, nCount,
                       [&](std::size_t nPart) { return __real_pread(nFile, lp, nPart, nAt); });
}

int __real_fflush(std::FILE* p);
int __wrap_fflush(std::FILE* p) {
    if (p == stdout || p == stderr) return __real_fflush(p);
    return Fails(Faults::Call_fflush) ? EOF : __real_fflush(p);
}

int __real_fclose(std::FILE* p);
int __wrap_fclose(std::FILE* p) {
    const int nResult =
        __real_fclose(p);  // the file is closed even if this call then reports a failure
    return Fails(Faults::Call_fclose) ? EOF : nResult;
}
}
