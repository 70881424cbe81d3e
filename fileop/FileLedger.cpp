#include "fileop/FileLedger.h"

#include <algorithm>
#include <utility>

#include "fileop/FileOperation.h"
#include "platform/CmResult.h"

namespace {

bool IsAppend(CmUint32 dwOffset) { return dwOffset == CCacheFileManager::GetMaxDword(); }

/// The reporter gets the reference, so that it is released on the thread that reports.
void PassOn(CRefPtr<ISyncReporter> pReporter, CmInt32 lResult) {
    ISyncReporter& aReporter = *pReporter;
    aReporter.Report(std::move(pReporter), lResult);
}

}  // namespace

std::atomic<CmUint32> CFileLedger::s_dwFailures{0};
std::atomic<std::uint64_t> CFileLedger::s_qwUnsynced{0};

std::uint64_t CCacheFileManager::GetUnsyncedBytes() { return CFileLedger::GetUnsyncedBytes(); }

CFileLedger::~CFileLedger() { TakeSyncFailure(); }

std::atomic<std::uint64_t>& CFileLedger::PendingOf(CmUint32 dwOffset) {
    return IsAppend(dwOffset) ? m_qwPendingAppends : m_qwPendingInPlace;
}

void CFileLedger::Queue(std::uint64_t qwLength, CmUint32 dwOffset) {
    PendingOf(dwOffset).fetch_add(qwLength, std::memory_order_relaxed);
}

void CFileLedger::LeaveQueueLocked(std::uint64_t qwLength, CmUint32 dwOffset) {
    std::atomic<std::uint64_t>& aPending = PendingOf(dwOffset);
    // In synchronous mode nothing was queued.
    aPending.fetch_sub(std::min(aPending.load(std::memory_order_relaxed), qwLength),
                       std::memory_order_relaxed);
}

void CFileLedger::Unqueue(std::uint64_t qwLength, CmUint32 dwOffset) {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    LeaveQueueLocked(qwLength, dwOffset);
}

void CFileLedger::LoseAppendLocked(std::uint64_t qwOffset, std::uint64_t qwLength) {
    m_missing.Add(qwOffset, qwLength, CFileRanges::c_nMaxRanges - m_damaged.Get().size());
}

void CFileLedger::LoseInPlaceLocked(const CFileRanges& aRanges) {
    m_damaged.AddAll(aRanges, CFileRanges::c_nMaxRanges - m_missing.Get().size());
}

void CFileLedger::LoseQueued(std::uint64_t qwLength, CmUint32 dwOffset) {
    CCacheFileManager::AddLostBytes(qwLength);
    CFileRanges aRange(1);
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    LeaveQueueLocked(qwLength, dwOffset);
    if (IsAppend(dwOffset)) {
        m_missing.ShiftTowardsStart(m_qwEnd,
                                    qwLength);  // later holes were placed after these bytes
        LoseAppendLocked(m_qwEnd, qwLength);
    } else {
        aRange.Add(dwOffset, qwLength);
        LoseInPlaceLocked(aRange);
    }
}

void CFileLedger::LoseGathered(IFileOperation& aFile, std::uint64_t qwLength) {
    CCacheFileManager::AddLostBytes(qwLength);
    CFileLedger* const pLedger = aFile.Ledger();
    if (!pLedger) return;
    CCmMutexGuardT<CCmMutexThread> aGuard(pLedger->m_mutex);
    pLedger->LoseAppendLocked(pLedger->m_qwEnd + pLedger->m_qwPendingAppends, qwLength);
}

void CFileLedger::Written(std::uint64_t qwBegin, std::uint64_t qwLength, CmUint32 dwOffset) {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    LeaveQueueLocked(qwLength, dwOffset);
    m_qwEnd = std::max(IsAppend(dwOffset) ? 0 : m_qwEnd, qwBegin + qwLength);
}

void CFileLedger::AppendFailed(std::uint64_t qwBegin) {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    m_qwEnd = qwBegin;
}

void CFileLedger::AddUnsynced(std::uint64_t qwLength) {
    s_qwUnsynced.fetch_add(qwLength, std::memory_order_relaxed);
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    m_qwUnsynced += qwLength;
}

void CFileLedger::RemoveUnsynced(std::uint64_t qwLength) {
    s_qwUnsynced.fetch_sub(qwLength, std::memory_order_relaxed);
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    m_qwUnsynced -= qwLength;
}

void CFileLedger::LoseUnsynced(const CFileRanges& aRanges) {
    CCacheFileManager::AddLostBytes(aRanges.Bytes());
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        LoseInPlaceLocked(aRanges);
    }
    RemoveUnsynced(aRanges.Bytes());
}

void CFileLedger::SetReporter(ISyncReporter* pReporter) {
    const CRefPtr<ISyncReporter> pNew(pReporter);
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    m_pReporter = pNew;
}

void CFileLedger::ReportSync(CmInt32 lResult) {
    if (lResult == CACHE_OK) return;
    CRefPtr<ISyncReporter> pReporter;
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        pReporter = m_pReporter;
        if (pReporter) {
            m_lReportedFailure = lResult;
        } else {
            if (m_lSyncFailure == CACHE_OK) s_dwFailures.fetch_add(1, std::memory_order_relaxed);
            m_lSyncFailure = lResult;
        }
    }
    if (pReporter) PassOn(std::move(pReporter), lResult);
}

void CFileLedger::ReleaseReporter() {
    CRefPtr<ISyncReporter> pReporter;
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        pReporter = std::move(m_pReporter);
    }
    if (pReporter) PassOn(std::move(pReporter), CACHE_OK);
}

CmInt32 CFileLedger::TakeSyncFailure() {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    if (m_lSyncFailure != CACHE_OK) s_dwFailures.fetch_sub(1, std::memory_order_relaxed);
    return std::exchange(m_lSyncFailure, CACHE_OK);
}

CmInt32 CFileLedger::TakeSyncFailureOf(IFileOperation& aFile) {
    CFileLedger* const pLedger = HasSyncFailure() ? aFile.Ledger() : nullptr;
    return pLedger ? pLedger->TakeSyncFailure() : CmInt32{CACHE_OK};
}

CmInt32 CFileLedger::TakeReportedFailure() {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    return std::exchange(m_lReportedFailure, CACHE_OK);
}

tagFileLosses CFileLedger::Get() {
    tagFileLosses aLosses;
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    aLosses.qwLost = m_missing.Bytes() + m_damaged.Bytes();
    aLosses.qwPending = m_qwPendingAppends + m_qwPendingInPlace;
    aLosses.qwUnsynced = m_qwUnsynced;
    aLosses.vecHoles = m_missing.Get();
    aLosses.vecHoles.insert(aLosses.vecHoles.end(), m_damaged.Get().begin(), m_damaged.Get().end());
    std::stable_sort(aLosses.vecHoles.begin(), aLosses.vecHoles.end(),
                     [](const tagFileHole& aLeft, const tagFileHole& aRight) {
                         return aLeft.qwOffset < aRight.qwOffset;
                     });
    aLosses.bAllHoles = m_missing.IsComplete() && m_damaged.IsComplete();
    return aLosses;
}
