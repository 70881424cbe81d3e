#include "fileop/FileSync.h"

#include <cerrno>
#include <utility>

#include "fileop/SystemError.h"
#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

CFileSync::CFileSync(std::FILE* pStream, CFileLedger* pLedger, const CCmString& strPath,
                     const CmPlace& aPlace, CFileRanges& aWritten)
    : m_pLedger(pLedger),
      m_names(strPath, aPlace, CmFile::DescriptorOf(pStream)),
      m_pStream(pStream) {
    m_pLedger->AddUnsynced(aWritten.Bytes());
    m_unsynced.Swap(aWritten);
}

CFileSync::~CFileSync() { m_pLedger->RemoveUnsynced(m_unsynced.Bytes()); }

CmUint32 CFileSync::BeginWrite() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    return m_dwFailures;
}

void CFileSync::Written(std::uint64_t qwOffset, std::uint64_t qwLength, CmUint32 dwFailures) {
    m_pLedger->AddUnsynced(qwLength);
    CFileRanges aLost(1);
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        (m_dwFailures == dwFailures ? m_unsynced : aLost).Add(qwOffset, qwLength);
    }
    m_pLedger->LoseUnsynced(aLost);
    Schedule();
}

bool CFileSync::Schedule() {
    if (!CSyncThread::IsOn()) return false;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        if (m_bScheduled || !IsAnythingToSyncLocked()) return m_bScheduled;
        m_bScheduled = true;
    }
    if (CSyncThread::Instance().Add(this)) return true;
    std::lock_guard<std::mutex> aLock(m_mutex);
    return m_bScheduled = false;
}

CmInt32 CFileSync::Sync() { return Run(false); }

void CFileSync::SyncScheduled() {
    Run(true);
    ReleaseReporterAtEnd();
}

/// Releases the reporter if this was the last sync of a file that has been closed.
void CFileSync::ReleaseReporterAtEnd() {
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        if (m_pStream || m_bSyncing || m_bScheduled) return;
    }
    m_pLedger->ReleaseReporter();
}

/// The stream's descriptor could be closed, and its number reused, while the sync thread uses it.
/// So the sync thread uses a duplicate. If there is none, Close waits until the sync has ended.
CFileSync::tagDescriptor CFileSync::TakeDescriptorLocked(bool bScheduled) {
    CSyncDescriptor aOwned;
    if (!m_pStream)
        aOwned = std::move(m_duplicate);
    else if (bScheduled)
        aOwned = CSyncDescriptor(CmFile::Duplicate(m_pStream));
    const int nOwned = aOwned.Get();
    if (nOwned >= 0 || !m_pStream) return {std::move(aOwned), nOwned};
    m_bBorrowed = bScheduled;
    return {{}, CmFile::DescriptorOf(m_pStream)};
}

CmInt32 CFileSync::Run(bool bScheduled) {
    CFileRanges aRanges(1);
    tagDescriptor aDescriptor{{}, -1};
    {
        std::unique_lock<std::mutex> aLock(m_mutex);
        m_ended.wait(aLock, [&] { return !m_bSyncing; });
        if (bScheduled) m_bScheduled = false;
        if (bScheduled && !IsAnythingToSyncLocked()) return CACHE_OK;
        aDescriptor = TakeDescriptorLocked(bScheduled);
        if (aDescriptor.nFile < 0) return CACHE_OK;
        m_bSyncing = true;
        aRanges.Swap(m_unsynced);
    }
    int nErrno = SyncAll(aDescriptor.nFile);
    // A network file system may report here what the sync did not.
    if (aDescriptor.aOwned.Close() != 0 && nErrno == 0) nErrno = errno ? errno : EIO;
    RecordResult(nErrno, aRanges);
    const CmInt32 lResult =
        nErrno == 0 ? CmInt32{CACHE_OK} : SystemErrorToResult(nErrno, FileAction::Write);
    if (bScheduled) m_pLedger->ReportSync(lResult);
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        m_bSyncing = m_bBorrowed = false;
    }
    m_ended.notify_all();
    return lResult;
}

/// Returns 0 or an errno. The data is synced before the directories, so that a name on the disk
/// does not refer to missing data.
int CFileSync::SyncAll(int nFile) {
    if (CmFile::SyncData(nFile) != 0) return errno ? errno : EIO;
    return m_names.Sync(nFile);
}

/// Records the result of a sync of aRanges: an errno, or 0.
void CFileSync::RecordResult(int nErrno, CFileRanges& aRanges) {
    if (nErrno == 0) {
        {
            std::lock_guard<std::mutex> aLock(m_mutex);
            m_bNewName = false;
        }
        return m_pLedger->RemoveUnsynced(aRanges.Bytes());
    }
    TraceError("CFileSync::Sync->Sync file error=", nErrno, " this=", this);
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        aRanges.AddAll(m_unsynced);  // their write-back may be the one that failed
        m_unsynced.Clear();
        ++m_dwFailures;
    }
    m_pLedger->LoseUnsynced(aRanges);
}

void CFileSync::StartWriteBack() {
    CSyncDescriptor aOwned;
    int nFile = -1;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        if (m_pStream) aOwned = CSyncDescriptor(CmFile::Duplicate(m_pStream));
        nFile = m_pStream ? aOwned.Get() : m_duplicate.Get();
    }
    if (nFile >= 0) CmFile::StartWriteBack(nFile);
}

void CFileSync::Close() {
    bool bSync = false;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        // A scheduled sync takes place even if the interval is being ended.
        bSync = (CSyncThread::IsOn() || m_bScheduled) && IsAnythingToSyncLocked();
    }
    const bool bLater = bSync && !CSyncDescriptor::AreTooMany();
    CSyncDescriptor aDuplicate(bLater ? CmFile::Duplicate(m_pStream) : -1);
    const bool bDuplicate = aDuplicate.Get() >= 0;
    if (bSync && !bDuplicate) m_pLedger->ReportSync(Run(false));
    {
        std::unique_lock<std::mutex> aLock(m_mutex);
        m_ended.wait(aLock, [&] { return !m_bBorrowed; });
        m_pStream = nullptr;
        m_duplicate = std::move(aDuplicate);
    }
    if (bDuplicate && !Schedule()) SyncScheduled();  // the interval has just ended
    if (CSyncDescriptor::AreMany()) CSyncThread::Instance().Wake();
    ReleaseReporterAtEnd();
}
