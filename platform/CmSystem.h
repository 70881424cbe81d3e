#pragma once

#include <cstdint>

/// The functions of the operating system that the library uses, except those for files. There is
/// one source file for each system.

/// A descriptor that a host can poll. It is readable from Signal until Clear. It is not
/// thread-safe; its owner has a lock. On systems without such descriptors Open returns false.
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

/// While an object of this class exists, threads that this thread creates start with their signals
/// blocked, so that the host's signal handlers run on the host's threads. Two groups of signals
/// keep the mask of this thread: synchronous faults, and TERM, INT, HUP and QUIT, which must end a
/// process even if only the new thread is left. No signal is unblocked that this thread has
/// blocked.
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

/// Registers pHandler to be called when the process exits or the library is unloaded. Handlers run
/// in the reverse order of their registration. Returns whether it will be called. On Windows it
/// returns false, because a thread cannot be joined at that time; the host must shut the library
/// down itself.
bool CmRegisterExitHandler(void (*pHandler)());

/// Returns whether this process was forked from the one that registered the first exit handler.
/// Exit handlers then do nothing, because the threads and objects that they use belong to the
/// parent.
bool CmIsForkedChild();

/// Registers three functions for every fork of the process: the first is called before it, the
/// others after it in the parent and in the child, all on the thread that forks. Unloading the
/// library removes them. Returns whether they will be called; systems without fork return false.
bool CmRegisterForkHandlers(void (*pBefore)(), void (*pInParent)(), void (*pInChild)());
