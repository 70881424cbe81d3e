#pragma once

#include <cstdint>

/// What the layer needs of the operating system besides files. One source file per system.

/// A descriptor that a host can poll: readable after Signal until Clear. Not thread-safe; its owner
/// locks. On systems without such descriptors Open returns false.
class CCmWakeDescriptor {
 public:
    CCmWakeDescriptor() = default;
    ~CCmWakeDescriptor() { Close(); }
    CCmWakeDescriptor(const CCmWakeDescriptor&) = delete;
    CCmWakeDescriptor& operator=(const CCmWakeDescriptor&) = delete;

    bool Open();
    void Close();
    bool IsOpen() const { return m_nReadEnd >= 0; }
    int GetDescriptor() const { return m_nReadEnd; }
    void Signal();
    void Clear();

 private:
    int m_nReadEnd = -1;
    int m_nWriteEnd = -1;
};

/// While one of these lives, a thread that this thread creates starts with all signals blocked, so
/// that the host's handlers run on the host's threads. Two kinds keep the mask of this thread: the
/// synchronous faults, and TERM, INT, HUP and QUIT, which have to end a process whose other threads
/// have all ended. No signal that this thread has blocked is unblocked.
class CCmSignalBlocker {
 public:
    CCmSignalBlocker();
    ~CCmSignalBlocker();
    CCmSignalBlocker(const CCmSignalBlocker&) = delete;
    CCmSignalBlocker& operator=(const CCmSignalBlocker&) = delete;

 private:
    struct tagSaved;
    alignas(16) unsigned char m_saved[128] = {};  // a tagSaved
};

/// A clock that is read in a few nanoseconds and advances in steps of some milliseconds, so that it
/// may be late by up to one step. Returns nanoseconds since an unspecified moment.
std::int64_t CmCoarseTime();
std::int64_t CmCoarseStep();

/// Registers pHandler to be called when the process exits or the library is unloaded; handlers run
/// in the reverse order of their registration. Returns whether it will be called. Windows returns
/// false: a thread cannot be joined so late there, and the host shuts the library down itself.
bool CmRegisterExitHandler(void (*pHandler)());

/// Whether this process was forked from the one that registered the first exit handler. Exit
/// handlers do nothing then: what they would wait for or free belongs to the parent.
bool CmIsForkedChild();

/// Registers three functions for every fork of the process: the first is called before it, the
/// others after it in the parent and in the child, all on the thread that forks. Unloading the
/// library removes them. Returns whether they will be called; systems without fork return false.
bool CmRegisterForkHandlers(void (*pBefore)(), void (*pInParent)(), void (*pInChild)());
