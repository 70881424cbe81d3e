#pragma once

#include <atomic>

#include "fileop/FileRanges.h"
#include "platform/CmReference.h"

class IFileOperation;

/// Where the failure of a sync is reported that no call waits for: in asynchronous mode. Counted.
class ISyncReport : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// Has Op_Write with the code reported to the host, or nothing for CACHE_OK. pSelf is a
    /// reference on this object, which is dropped on the thread that reports. Any thread.
    virtual void Report(CRefPtr<ISyncReport> pSelf, CmInt32 lResult) = 0;
};

/// What became of the bytes of one open file: which are pending, unsynced and lost, and where.
///
/// Made by the local file at the end of the chain, and shared with the record of its syncs, which
/// may outlive the file. Any thread: the host's thread, the worker and the sync thread change it
/// under its mutex. No call of the system is made under the mutex, and gathering does not take it.
/// Nothing here fails. Lost bytes are added to those of the process in the same step.
class CFileLedger final : public CCmReferenceControlT<CCmMutexThread> {
 public:
    ~CFileLedger() override;

    /// A write of so many bytes is handed to the worker.
    void Queue(std::uint64_t qwLength, CmUint32 dwOffset);
    /// It will not run; whoever handed it over still has the bytes.
    void Unqueue(std::uint64_t qwLength, CmUint32 dwOffset);
    /// It failed, or was refused by the worker: the bytes are lost.
    void LoseQueued(std::uint64_t qwLength, CmUint32 dwOffset);

    /// Gathered bytes could not be passed on to aFile: they are lost. If that link has no ledger,
    /// only the process counts them.
    static void LoseGathered(IFileOperation& aFile, std::uint64_t qwLength);

    /// For the file: a write of all bytes at qwBegin has succeeded; dwOffset is the write's.
    void Written(std::uint64_t qwBegin, std::uint64_t qwLength, CmUint32 dwOffset);
    /// An append that begins at qwBegin has failed.
    void AppendFailed(std::uint64_t qwBegin);

    /// For the record of the syncs: bytes that were written wait for a sync; they don't any more;
    /// they are lost.
    void AddUnsynced(std::uint64_t qwLength);
    void TakeUnsynced(std::uint64_t qwLength);
    void LoseUnsynced(const CFileRanges& aRanges);

    /// In asynchronous mode: where failures of syncs are reported.
    void SetReport(ISyncReport* pReport);

    /// Reports the failure of a sync. Without a place to report it is kept for TakeSyncFailure,
    /// otherwise for TakeReportedFailure.
    /// bLast: the file has been closed and this was its last sync, so the place is let go of; the
    /// reference is dropped on the thread that reports.
    void ReportSync(CmInt32 lResult, bool bLast);
    /// Returns the code of a failed sync that no call has returned yet, once; otherwise 0.
    CmInt32 TakeSyncFailure();
    /// Whether there may be such a failure in any file. Costs one load.
    static bool HasSyncFailure() { return s_dwFailures.load(std::memory_order_relaxed) > 0; }

    /// Returns the code of a reported failure since the last call of this; otherwise 0. For an
    /// explicit sync: that it went well proves nothing for the bytes of the failed one.
    CmInt32 TakeReportedFailure();

    /// Throws std::bad_alloc.
    tagFileLosses Get();

    static std::uint64_t GetUnsyncedBytes() { return s_qwUnsynced.load(std::memory_order_relaxed); }

 private:
    void LeaveQueueLocked(std::uint64_t qwLength, CmUint32 dwOffset) CM_NO_LOCK_ANALYSIS;
    void LoseInPlaceLocked(const CFileRanges& aRanges) CM_NO_LOCK_ANALYSIS;
    void LoseAppendLocked(std::uint64_t qwOffset, std::uint64_t qwLength) CM_NO_LOCK_ANALYSIS;

    static std::atomic<CmUint32> s_dwFailures;
    static std::atomic<std::uint64_t> s_qwUnsynced;

    CCmMutexThread m_mutex;
    std::uint64_t m_qwEnd CM_GUARDED_BY(m_mutex) = 0;             // where the next append goes
    std::uint64_t m_qwPending CM_GUARDED_BY(m_mutex) = 0;         // handed to the worker
    std::uint64_t m_qwPendingAppends CM_GUARDED_BY(m_mutex) = 0;  // the appends among them
    std::uint64_t m_qwUnsynced CM_GUARDED_BY(m_mutex) = 0;
    CFileRanges m_missing CM_GUARDED_BY(m_mutex){0};
    CFileRanges m_damaged CM_GUARDED_BY(m_mutex){1};
    CmInt32 m_lSyncFailure CM_GUARDED_BY(m_mutex) = 0;
    CmInt32 m_lReportedFailure CM_GUARDED_BY(m_mutex) = 0;
    CRefPtr<ISyncReport> m_pReport CM_GUARDED_BY(m_mutex);
};
