#pragma once

#include "platform/CmCallable.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// The host's side of asynchronous mode: the caller thread, on which the host drives its handlers
/// and on which every callback runs.
///
/// A host that opens files in asynchronous mode attaches its thread. That thread then runs the
/// results that wait for it, in one of two ways: it calls RunPending in its own loop when the
/// wake-up callable or the descriptor signals, or it waits in WaitAndRun. Results stay in memory
/// until then. All operations are static. There is one caller thread at a time.
///
/// A forked child is attached if the attached thread forked, otherwise it is not. Its queue is
/// empty and has no descriptor. SetWakeUp and Detach return in the child even if another thread of
/// the parent was running the wake-up callable.
class CACHEFILE_API CCmCallerThread {
 public:
    CCmCallerThread() = delete;

    /// Makes the calling thread the caller thread. Repeated calls on the same thread nest. Returns
    /// 0, CACHE_ERR_INVALID_STATE while another thread is attached, or CACHE_ERR_OUT_OF_MEMORY.
    static CmInt32 Attach();

    /// Undoes one Attach. The last Detach ends the attachment: the files that are open report no
    /// more results, results that wait are disposed of without a callback, the wake-up callable is
    /// removed and the descriptor is closed. Returns 0, or CACHE_ERR_INVALID_STATE on any other
    /// thread.
    static CmInt32 Detach();

    /// Whether the calling thread is the caller thread.
    static bool IsCurrent();

    /// Runs the callbacks that wait at this moment, but not those that are posted meanwhile. If it
    /// is called from inside a callback, it runs those that the outer run has not reached yet.
    /// pdwCount, if it is not null, receives how many ran. An exception of a callback propagates,
    /// and the callbacks after it wait for the next run. Returns 0, or CACHE_ERR_INVALID_STATE on
    /// any other thread.
    static CmInt32 RunPending(CmUint32* pdwCount = nullptr);

    /// As RunPending, but if nothing waits, it first sleeps until a result is posted, for
    /// dwMilliseconds at most. If none is posted in time, it returns 0 with a count of 0.
    static CmInt32 WaitAndRun(CmUint32 dwMilliseconds, CmUint32* pdwCount = nullptr);

    /// Called when a result is posted to an empty queue, on the thread that posted it (mostly the
    /// worker) and with no lock of the library held. It must not throw, wait for the caller thread
    /// or call back into the library. It is meant to post a message to the host's own loop. It may
    /// also be called when no result waits.
    using WakeUp = CCmCallable<void()>;

    /// Installs aWakeUp, or removes it if it is empty. Returns when no call of the earlier one is
    /// running on another thread. If a result waits already, aWakeUp is called before this returns.
    /// Returns 0, CACHE_ERR_INVALID_STATE on any other than the caller thread, or
    /// CACHE_ERR_OUT_OF_MEMORY.
    static CmInt32 SetWakeUp(WakeUp aWakeUp);

    /// Sets nDescriptor to a descriptor for poll, select or epoll that is readable while a result
    /// waits. The library reads, writes and (at Detach) closes it; the host only polls it. Returns
    /// 0; CACHE_ERR_INVALID_STATE on any other than the caller thread; CACHE_ERR_FAILED if the
    /// system has no such descriptors (Windows) or none could be created. On failure nDescriptor is
    /// -1.
    static CmInt32 GetWakeDescriptor(int& nDescriptor);
};

/// Attaches the calling thread while the object exists. Check GetResult.
class CCmCallerThreadGuard {
 public:
    CCmCallerThreadGuard() : m_lResult(CCmCallerThread::Attach()) {}
    ~CCmCallerThreadGuard() {
        if (m_lResult == 0) CCmCallerThread::Detach();
    }
    CCmCallerThreadGuard(const CCmCallerThreadGuard&) = delete;
    CCmCallerThreadGuard& operator=(const CCmCallerThreadGuard&) = delete;

    /// 0 if the thread is attached, otherwise the code of Attach.
    CmInt32 GetResult() const { return m_lResult; }

 private:
    const CmInt32 m_lResult;
};
