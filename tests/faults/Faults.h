#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

/// Makes system calls of the library fail, and counts its writes. The linker replaces these calls
/// (--wrap). A write or read that must fail transfers half of its bytes, and the next one fails; a
/// write without an error (errno 0) returns 0 then.
namespace Faults {

/// X(function, return value on failure)
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
    X(fdatasync, -1)   \
    X(fcntl, -1)       \
    X(fclose, EOF)     \
    X(rename, -1)

enum Call {
#define FAULT_CALL(name, failure) Call_##name,
    FAULT_CALLS(FAULT_CALL)
#undef FAULT_CALL
        Call_Count
};

const char* NameOf(Call aCall);

/// Returns how many writes of file data there were since the last call of this.
int TakeWrites();

/// Makes the nNth of these calls fail, counted from now, or also all later ones.
void Arm(Call aCall, int nNth, bool bForEver, int nErrno);

/// Ends the failures and returns how many there were.
int Disarm();

/// Runs aWork once, after the next failing transfer has done its first half.
void RunBeforeFailure(std::function<void()> aWork);

/// From now on each sync of a file's data waits until this is called with false.
void HoldSyncs(bool bHold);

/// Which free space the system shows from now on.
void SetFreeSpace(std::uint64_t qwBytes);

/// Delays each write, or each sync of a file's data, by this time.
void SetWriteDelay(std::chrono::milliseconds aDelay);
void SetSyncDelay(std::chrono::milliseconds aDelay);

}  // namespace Faults
