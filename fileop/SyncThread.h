#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "fileop/FileSync.h"

/// Records in the order in which they were added, linked through themselves. No lock of its own.
class CSyncList {
 public:
    using Time = std::chrono::steady_clock::time_point;

    bool IsEmpty() const { return !m_pFirst; }
    void PushBack(CRefPtr<CFileSync> pRecord);
    /// The first one if it was added at that time or before, otherwise null.
    CRefPtr<CFileSync> PopUntil(Time aTime);
    Time FirstTime() const { return m_pFirst->m_since; }
    void Forget();  // without freeing anything

 private:
    CRefPtr<CFileSync> m_pFirst;
    CFileSync* m_pLast = nullptr;
};

/// The thread that brings to the disk what was written, while a sync interval is set.
///
/// One object for the process, never destroyed. A record is added when something of its file begins
/// to be unsynced. After a quarter of the interval its write-back is started, after half of it the
/// file is synced, the oldest first. The other half is for the syncs of other files, so that the
/// bytes are on the disk in time unless the disk is too slow for all of them.
///
/// Any thread: the records are guarded by the mutex, which is not held during calls of the system.
/// The thread uses descriptors only, no handler, buffer or callback. A failure stays with its file.
/// In a forked child there is no thread and no interval.
class CSyncThread {
 public:
    static CSyncThread& Instance();

    /// Whether an interval is set. Costs one load.
    static bool IsOn() { return s_bOn.load(std::memory_order_relaxed); }

    /// See CCacheFileManager::SetSyncInterval.
    CmInt32 SetInterval(CmUint32 dwMilliseconds);

    /// Has the record synced in time. False if there is no interval.
    bool Add(CFileSync* pRecord);

    /// Ends the interval and the thread, and then syncs what is left in this call. Does nothing on
    /// the thread itself.
    void Finish();

    /// Has Finish called when the process exits or the library is unloaded. The first call counts.
    /// Exit handlers that are registered later run before it.
    static void RegisterExitHandler();

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CSyncThread() = default;

    using Clock = std::chrono::steady_clock;

    CmInt32 Start();
    void Run();
    bool RunNext(std::unique_lock<std::mutex>& aLock);
    void Sleep(std::unique_lock<std::mutex>& aLock);

    static void BeforeFork();
    static void AfterForkInParent();
    static void AfterForkInChild();

    static std::atomic<bool> s_bOn;

    std::mutex
        m_mutexControl;    // one change of interval and thread at a time; not held by the thread
    std::thread m_thread;  // guarded by m_mutexControl

    std::mutex m_mutex;
    std::condition_variable m_wake;
    // Guarded by m_mutex.
    std::chrono::microseconds m_interval{0};
    bool m_bStop = false;
    bool m_bForkedChild = false;
    CSyncList m_fresh;    // wait for their write-back
    CSyncList m_started;  // wait for their sync
};
