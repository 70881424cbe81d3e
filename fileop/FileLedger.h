#pragma once

#include <atomic>

#include "fileop/FileRanges.h"
#include "platform/CmReference.h"

class IFileOperation;

/// Reports the failure of a sync that no call returns, in asynchronous mode. Reference-counted.
class ISyncReporter : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// Reports Op_Write with the code to the host; for CACHE_OK it reports nothing. pSelf is a
    /// reference to this object, which is released on the thread that reports. Any thread.
    virtual void Report(CRefPtr<ISyncReporter> pSelf, CmInt32 lResult) = 0;
};

/// Records how many bytes of one open file are pending, unsynced and lost, and where bytes are
/// missing.
///
/// Created by the local file at the end of the chain, and shared with the CFileSync of the file,
/// which may outlive the file. Any thread may use it: the host's thread, the worker and the sync
/// thread change it with its mutex locked; only Queue changes an atomic instead. No system call is
/// made with the mutex locked, and gathering does not lock it. Only Get can fail. Bytes that are
/// lost here are added to the lost bytes of the process too.
class CFileLedger final : public CCmReferenceControlT<CCmMutexThread> {
 public:
    ~CFileLedger() override;

    /// A write of qwLength bytes is passed to the worker.
    void Queue(std::uint64_t qwLength, CmUint32 dwOffset);
    /// That write will not run, and its caller still has the bytes.
    void Unqueue(std::uint64_t qwLength, CmUint32 dwOffset);
    /// That write failed, or the worker refused it: the bytes are lost.
    void LoseQueued(std::uint64_t qwLength, CmUint32 dwOffset);

    /// Gathered bytes could not be passed on to aFile and are lost. If that link has no ledger,
    /// they are only added to the lost bytes of the process.
    static void LoseGathered(IFileOperation& aFile, std::uint64_t qwLength);

    /// For the file: all bytes were written at qwBegin. dwOffset is the argument of the write.
    void Written(std::uint64_t qwBegin, std::uint64_t qwLength, CmUint32 dwOffset);
    /// An append that begins at qwBegin has failed.
    void AppendFailed(std::uint64_t qwBegin);

    /// For CFileSync: written bytes become unsynced; unsynced bytes stop counting as unsynced;
    /// unsynced bytes are lost.
    void AddUnsynced(std::uint64_t qwLength);
    void RemoveUnsynced(std::uint64_t qwLength);
    void LoseUnsynced(const CFileRanges& aRanges);

    /// Sets the object that reports failures of syncs, in asynchronous mode.
    void SetReporter(ISyncReporter* pReporter);
    /// Reports the failure of a sync through that object, and keeps the code for
    /// TakeReportedFailure. If there is no such object, the code is kept for TakeSyncFailure.
    /// Nothing is reported for 0.
    void ReportSync(CmInt32 lResult);
    /// Releases the reference to that object, on the thread that reports. Called after the last
    /// sync of a closed file.
    void ReleaseReporter();

    /// Returns the code that ReportSync has kept and clears it; 0 if there is none. A call of a
    /// handler returns it instead of doing anything. While no file has such a code, the second form
    /// costs one load.
    CmInt32 TakeSyncFailure();
    static CmInt32 TakeSyncFailureOf(IFileOperation& aFile);
    /// Whether such a code may be kept for any file. Costs one load.
    static bool HasSyncFailure() { return s_dwFailures.load(std::memory_order_relaxed) > 0; }

    /// Returns the code of the last reported failure since the last call of this; otherwise 0. For
    /// an explicit sync: its success proves nothing about the bytes of the failed one.
    CmInt32 TakeReportedFailure();

    /// Throws std::bad_alloc.
    tagFileLosses Get();

    static std::uint64_t GetUnsyncedBytes() { return s_qwUnsynced.load(std::memory_order_relaxed); }

 private:
    std::atomic<std::uint64_t>& PendingOf(CmUint32 dwOffset);
    void LeaveQueueLocked(std::uint64_t qwLength, CmUint32 dwOffset) CM_NO_LOCK_ANALYSIS;
    void LoseInPlaceLocked(const CFileRanges& aRanges) CM_NO_LOCK_ANALYSIS;
    void LoseAppendLocked(std::uint64_t qwOffset, std::uint64_t qwLength) CM_NO_LOCK_ANALYSIS;

    static std::atomic<CmUint32> s_dwFailures;
    static std::atomic<std::uint64_t> s_qwUnsynced;

    // Passed to the worker. The thread of the file adds to them without the mutex, so that a block
    // needs it only once. They are reduced with the mutex locked.
    std::atomic<std::uint64_t> m_qwPendingAppends{0};
    std::atomic<std::uint64_t> m_qwPendingInPlace{0};

    CCmMutexThread m_mutex;
    std::uint64_t m_qwEnd CM_GUARDED_BY(m_mutex) = 0;  // where the next append goes
    std::uint64_t m_qwUnsynced CM_GUARDED_BY(m_mutex) = 0;
    CFileRanges m_missing CM_GUARDED_BY(m_mutex){0};
    CFileRanges m_damaged CM_GUARDED_BY(m_mutex){1};
    CmInt32 m_lSyncFailure CM_GUARDED_BY(m_mutex) = 0;
    CmInt32 m_lReportedFailure CM_GUARDED_BY(m_mutex) = 0;
    CRefPtr<ISyncReporter> m_pReporter CM_GUARDED_BY(m_mutex);
};
