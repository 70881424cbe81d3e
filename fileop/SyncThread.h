#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "fileop/SyncDescriptor.h"
#include "platform/CmReference.h"

/// A file that waits for the sync thread (CFileSync). The sync thread calls the operations; so does
/// the thread that ends the sync thread.
class CSyncRecord : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// Lets the system start to write the file's data to the disk, without waiting.
    virtual void StartWriteBack() = 0;
    /// Syncs the file if there is anything to sync, and reports a failure.
    virtual void SyncScheduled() = 0;

 private:
    friend class CSyncList;
    friend class CSyncThread;

    // Guarded by the mutex of the sync thread.
    CRefPtr<CSyncRecord> m_pNext;
    std::chrono::steady_clock::time_point m_since;
};

/// A list of records in the order of their times, linked through members of the records. It has no
/// lock: CSyncThread guards it.
class CSyncList {
 public:
    using Time = std::chrono::steady_clock::time_point;

    bool IsEmpty() const { return !m_pFirst; }
    void PushBack(CRefPtr<CSyncRecord> pRecord);
    /// Removes and returns the first record if its time is aTime or earlier; otherwise null.
    CRefPtr<CSyncRecord> PopUntil(Time aTime);
    Time FirstTime() const { return m_pFirst->m_since; }
    void ClearWithoutFreeing();  // empties the list without freeing the records

 private:
    CRefPtr<CSyncRecord> m_pFirst;
    CSyncRecord* m_pLast = nullptr;
};

/// The sync thread, which syncs written files while a sync interval is set.
///
/// One object for the process, never destroyed. A record is added when its file gets its first
/// unsynced byte or has a new name. After a quarter of the interval the thread starts the
/// write-back of the file, and after half of it the thread syncs the file, the oldest record first.
/// The other half is left for the syncs of other files, so that the bytes are on the disk in time
/// unless the disk is too slow for all files. While many descriptors are open for syncs
/// (CSyncDescriptor), every sync is due at once.
///
/// Any thread may use it: the mutex guards the records and is not held during system calls. The
/// sync thread uses descriptors, but no handler and no buffer. A failed sync affects only its file.
/// A forked child has no sync thread and no interval.
class CSyncThread {
 public:
    static CSyncThread& Instance();

    /// Whether an interval is set. Costs one load.
    static bool IsOn() { return s_bOn.load(std::memory_order_relaxed); }

    /// See CCacheFileManager::SetSyncInterval.
    CmInt32 SetInterval(CmUint32 dwMilliseconds);

    /// Adds a record to be synced in time. Returns false if no interval is set.
    bool Add(CSyncRecord* pRecord);

    /// Lets the thread look again at what is due.
    void Wake();

    /// Ends the interval and the thread. Then this call syncs the records that are left. Does
    /// nothing on the sync thread.
    void Finish();

    /// Registers an exit handler that calls Finish when the process exits or the library is
    /// unloaded. Further calls do nothing. Exit handlers that are registered later run before it.
    static void RegisterExitHandler();

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CSyncThread() = default;

    using Clock = std::chrono::steady_clock;

    CmInt32 Start();
    void Run();
    bool ProcessDueRecord(std::unique_lock<std::mutex>& aLock);
    CRefPtr<CSyncRecord> PopForSync(bool bAll);
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
    CSyncList m_fresh;    // the write-back has not been started
    CSyncList m_started;  // the write-back has been started, and the sync has not
};
