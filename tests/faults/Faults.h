#pragma once

#include <chrono>
#include <functional>

/// Stands between the library and the system: the linker leads these calls here. A write or read
/// that is to fail transfers half of its bytes, and the next one fails.
namespace Faults {

/// X(function, what it returns when it fails)
#define FAULT_CALLS(X) \
    X(openat, -1)      \
    X(fstat, -1)       \
    X(fdopen, nullptr) \
    X(faccessat, -1)   \
    X(mkdirat, -1)     \
    X(lseek, -1)       \
    X(write, -1)       \
    X(ftruncate, -1)   \
    X(read, -1)        \
    X(pread, -1)       \
    X(fflush, EOF)     \
    X(fsync, -1)       \
    X(fclose, EOF)     \
    X(rename, -1)

enum Call {
#define FAULT_CALL(name, failure) Call_##name,
    FAULT_CALLS(FAULT_CALL)
#undef FAULT_CALL
        Call_Count
};

const char* NameOf(Call aCall);

/// From now on the nNth of these calls fails, or that one and all behind it.
void Arm(Call aCall, int nNth, bool bForEver, int nErrno);

/// No more failures. How many there were.
int Disarm();

/// Runs aWork once, when the next transfer that is to fail has done its part.
void RunBeforeFailure(std::function<void()> aWork);

/// How long each write takes besides its work.
void SetWriteDelay(std::chrono::milliseconds aDelay);

}  // namespace Faults
