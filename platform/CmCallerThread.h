#pragma once

#include <functional>

#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// The host's side of asynchronous mode: the thread on which it drives its handlers and on which
/// every callback runs, the caller thread.
///
/// A host that opens files in asynchronous mode attaches its thread, and then lets that thread run
/// what has come in: either in a loop of its own (RunPending when the wake-up callable or the
/// descriptor says so) or by waiting here (WaitAndRun). Results pile up in memory for as long as
/// it does neither. All operations are static; there is one caller thread at a time.
///
/// A forked child keeps the attachment if the attached thread forked, else it has none. Its queue
/// is empty and without a descriptor; SetWakeUp and Detach return whatever other threads were
/// doing.
class CACHEFILE_API CCmCallerThread {
 public:
    CCmCallerThread() = delete;

    /// Makes the calling thread the caller thread. Repeats on the same thread nest.
    /// CACHE_ERR_INVALID_STATE while another thread is attached, CACHE_ERR_OUT_OF_MEMORY.
    static CmInt32 Attach();

    /// Undoes one Attach. The last one ends it: files opened so far report to nobody any more, and
    /// results that waited are disposed of without a callback. Also removes the wake-up callable
    /// and closes the descriptor. CACHE_ERR_INVALID_STATE on any other thread.
    static CmInt32 Detach();

    /// Whether the calling thread is the caller thread.
    static bool IsCurrent();

    /// Runs the callbacks that wait at this moment, not those that come in meanwhile. May be
    /// called from inside a callback; it then goes on with those the outer run had still to do.
    /// If pdwCount is given it receives how many ran. A callback's exception passes through; what
    /// it left undone waits for the next run. CACHE_ERR_INVALID_STATE on any other thread.
    static CmInt32 RunPending(CmUint32* pdwCount = nullptr);

    /// As RunPending, but if nothing waits it first sleeps until something does, dwMilliseconds
    /// at most. Nothing in time is a success with a count of 0.
    static CmInt32 WaitAndRun(CmUint32 dwMilliseconds, CmUint32* pdwCount = nullptr);

    /// Called whenever results begin to wait where none did, on the thread that brought them (the
    /// worker, mostly) and with no lock of the library held. It must not throw, wait for the caller
    /// thread or call back into the library; posting a message to the host's own loop is what it is
    /// for. It may be called once too often, never too seldom.
    using WakeUp = std::function<void()>;

    /// Installs aWakeUp, or removes it if it is empty. Returns when no call of the earlier one is
    /// running on another thread. If something waits already, it is called before this returns.
    /// CACHE_ERR_INVALID_STATE on any other than the caller thread, CACHE_ERR_OUT_OF_MEMORY.
    static CmInt32 SetWakeUp(WakeUp aWakeUp);

    /// A descriptor for poll, select or epoll that is readable while anything waits. The library
    /// reads, writes and (at Detach) closes it; the host only polls it. Caller thread only;
    /// CACHE_ERR_INVALID_STATE on any other, CACHE_ERR_FAILED where the system has no such
    /// descriptors (Windows) or none could be made, both with nDescriptor -1.
    static CmInt32 GetWakeDescriptor(int& nDescriptor);
};

/// Attaches the calling thread for as long as it lives. Check GetResult.
class CCmCallerThreadGuard {
 public:
    CCmCallerThreadGuard() : m_lResult(CCmCallerThread::Attach()) {}
    ~CCmCallerThreadGuard() {
        if (m_lResult == 0) CCmCallerThread::Detach();
    }
    CCmCallerThreadGuard(const CCmCallerThreadGuard&) = delete;
    CCmCallerThreadGuard& operator=(const CCmCallerThreadGuard&) = delete;

    /// 0 when the thread is attached, else the code of Attach.
    CmInt32 GetResult() const { return m_lResult; }

 private:
    const CmInt32 m_lResult;
};
