#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "fileop/DirectorySync.h"
#include "fileop/FileLedger.h"

/// The record of the syncs of one open file: what was written since the last good one, and how they
/// ended. All sync calls of the file go through it, because the system reports a failure only once
/// for each open file.
///
/// Owned by the file and, while it waits for a sync, by the sync thread, so it may outlive the file
/// by its last sync. The file's thread writes, syncs and closes; the sync thread syncs too. The
/// mutex is not held during calls that wait for the disk, and one sync runs at a time: another one
/// waits for it.
///
/// A failed sync counts all bytes since the last good one as lost. Nothing is repeated: they are
/// not unsynced any more. It is traced here, and reported through the ledger unless a call returns
/// the code.
class CFileSync final : public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// For a stream that has just been opened with that path and place. Why a directory could not
    /// be opened is remembered: syncs fail with that reason. aWritten has what was written to the
    /// stream before: it is unsynced from now on, and aWritten is empty. Throws std::bad_alloc,
    /// with aWritten as it was.
    CFileSync(std::FILE* pStream, CFileLedger* pLedger, const CCmString& strPath,
              const CmPlace& aPlace, CFileRanges& aWritten);
    ~CFileSync() override;

    // The file's thread.

    /// Returns how many syncs have failed. Call it before a write, for Written.
    CmUint32 BeginWrite();
    /// So many bytes were written at an offset. If a sync has failed since BeginWrite, they are
    /// lost with it, as the system may have reported the failure of their write-back by that.
    void Written(std::uint64_t qwOffset, std::uint64_t qwLength, CmUint32 dwFailures);
    /// Has the sync thread sync the file in time if there is anything to sync. Returns whether it
    /// will.
    bool Schedule();
    /// Syncs the file, its name and its directories. 0, or 4003 or 4006.
    CmInt32 Sync();
    /// Before the stream is closed. What is unsynced is synced by the sync thread, through a
    /// duplicate of the descriptor; if there can't be one, in this call; without an interval it is
    /// unsynced no longer but forgotten.
    void Close();

    // The sync thread, and whoever ends it.

    void StartWriteBack();
    /// Syncs what there is to sync, and reports a failure.
    void SyncScheduled();

 private:
    friend class CSyncList;
    friend class CSyncThread;

    struct tagDescriptor {
        int nFile;
        bool bClose;
    };

    CmInt32 Run(bool bScheduled);
    tagDescriptor TakeDescriptorLocked(bool bScheduled);
    int SyncAll(int nFile);
    void Settle(int nErrno, CFileRanges& aRanges);
    void EndReports();
    bool IsAnythingToSyncLocked() const { return m_unsynced.Bytes() > 0 || m_bNewName; }

    const CRefPtr<CFileLedger> m_pLedger;

    // Used by the sync that runs only.
    std::vector<CDirectorySync::tagTicket> m_vecTickets;
    int m_nDirectoryErrno = 0;

    std::mutex m_mutex;
    std::condition_variable m_ended;  // a sync has ended
    // Guarded by m_mutex.
    std::FILE* m_pStream;      // null after the file has been closed
    int m_nDuplicate = -1;     // of the descriptor, after that
    bool m_bSyncing = false;   // a sync runs
    bool m_bBorrowed = false;  // it uses the stream's own descriptor on the sync thread
    bool m_bScheduled = false;
    bool m_bNewName = true;  // no sync was good yet
    CmUint32 m_dwFailures = 0;
    CFileRanges m_unsynced{1};

    // Guarded by the mutex of the sync thread.
    CRefPtr<CFileSync> m_pNext;
    std::chrono::steady_clock::time_point m_since;
};
