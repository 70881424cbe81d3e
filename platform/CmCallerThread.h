#pragma once

#include "platform/CmCallable.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// The host's side of asynchronous mode: the caller thread, on which the host drives its handlers
/// and on which every callback runs.
///
/// A host that opens files in asynchronous mode attaches its thread. That thread then runs the
/// results that wait: either in the host's own loop (RunPending when the wake-up callable or the
/// descriptor signals) or by waiting here (WaitAndRun). Results stay in memory until it does one of
/// them. All operations are static; there is one caller thread at a time.
///
/// A forked child keeps the attachment if the attached thread forked, otherwise it has none. Its
/// queue is empty and has no descriptor; SetWakeUp and Detach return whatever other threads of the
/// parent were doing.
class CACHEFILE_API CCmCallerThread {
 public:
    CCmCallerThread() = delete;

    /// Makes the calling thread the caller thread. Repeated calls on the same thread nest.
    /// CACHE_ERR_INVALID_STATE while another thread is attached, CACHE_ERR_OUT_OF_MEMORY.
    static CmInt32 Attach();

    /// Undoes one Attach. The last Detach ends the attachment: files opened so far report nothing
    /// any more, results that waited are disposed of without a callback, the wake-up callable is
    /// removed and the descriptor closed. CACHE_ERR_INVALID_STATE on any other thread.
    static CmInt32 Detach();

    /// Whether the calling thread is the caller thread.
    static bool IsCurrent();

    /// Runs the callbacks that wait at this moment, but not those posted meanwhile. May be called
    /// from inside a callback; it then runs those that the outer run had not reached. If pdwCount
    /// is given it receives how many ran. A callback's exception propagates, and the callbacks
    /// after it wait for the next run. CACHE_ERR_INVALID_STATE on any other thread.
    static CmInt32 RunPending(CmUint32* pdwCount = nullptr);

    /// As RunPending, but if nothing waits it first sleeps until something does, dwMilliseconds
    /// at most. If nothing comes in time, it returns 0 with a count of 0.
    static CmInt32 WaitAndRun(CmUint32 dwMilliseconds, CmUint32* pdwCount = nullptr);

    /// Called whenever results begin to wait where none did, on the thread that posted them (mostly
    /// the worker) and with no lock of the library held. It must not throw, wait for the caller
    /// thread or call back into the library. It is meant to post a message to the host's own loop.
    /// It may be called without need, but it is called whenever it is needed.
    using WakeUp = CCmCallable<void()>;

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
