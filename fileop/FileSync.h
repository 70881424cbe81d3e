#pragma once

#include <condition_variable>
#include <mutex>

#include "fileop/FileLedger.h"
#include "fileop/NameSync.h"
#include "fileop/SyncThread.h"

/// Syncs one open file. It records what was written since the last successful sync, and how many
/// syncs have failed. All sync calls of the file go through it, because the system reports a failed
/// write-back only once for each open file.
///
/// Owned by the file and, while it waits for a sync, by the sync thread. So it may outlive the file
/// until the last sync has ended. The file's thread writes, syncs and closes; the sync thread syncs
/// too. The mutex is not held during calls that wait for the disk. Only one sync runs at a time;
/// another one waits for it.
///
/// After a failed sync all bytes since the last successful one count as lost and no longer as
/// unsynced; they are not synced again. The failure is traced here. It is reported through the
/// ledger unless a call returns the code.
class CFileSync final : public CSyncRecord {
 public:
    /// For a stream that was opened with that path and place. As long as a directory of the path
    /// cannot be opened, all syncs of the file fail. aWritten has the ranges that were written to
    /// the stream before. They count as unsynced from now on, and aWritten becomes empty. Throws
    /// std::bad_alloc and leaves aWritten unchanged then.
    CFileSync(std::FILE* pStream, CFileLedger* pLedger, const CCmString& strPath,
              const CmPlace& aPlace, CFileRanges& aWritten);
    ~CFileSync() override;

    // Called on the file's thread.

    /// Returns how many syncs have failed. Call it before a write, and pass the result to Written.
    CmUint32 BeginWrite();
    /// Records that qwLength bytes were written at qwOffset. If a sync has failed since BeginWrite,
    /// these bytes count as lost too, because that failure may have been the one of their
    /// write-back.
    void Written(std::uint64_t qwOffset, std::uint64_t qwLength, CmUint32 dwFailures);
    /// Adds the file to those that the sync thread syncs, if there is anything to sync. Returns
    /// whether the file is scheduled.
    bool Schedule();
    /// Syncs the file, its name and its directories. Returns 0, 4003 or 4006.
    CmInt32 Sync();
    /// Called before the stream is closed. If an interval is set, the sync thread syncs the
    /// unsynced bytes, through a duplicate of the descriptor. If there is no duplicate, or if too
    /// many wait already, this call syncs them. If no interval is set, they are not synced and no
    /// longer count as unsynced.
    void Close();

    void StartWriteBack() override;
    void SyncScheduled() override;

 private:
    struct tagDescriptor {
        CSyncDescriptor aOwned;  // none if the stream's own is used
        int nFile;
    };

    CmInt32 Run(bool bScheduled);
    tagDescriptor TakeDescriptorLocked(bool bScheduled);
    int SyncAll(int nFile);
    void RecordResult(int nErrno, CFileRanges& aRanges);
    void ReleaseReporterAtEnd();
    bool IsAnythingToSyncLocked() const { return m_unsynced.Bytes() > 0 || m_bNewName; }

    const CRefPtr<CFileLedger> m_pLedger;

    // Used only by the sync that is running.
    CNameSync m_names;

    std::mutex m_mutex;
    std::condition_variable m_ended;  // a sync has ended
    // Guarded by m_mutex.
    std::FILE* m_pStream;         // null after the file has been closed
    CSyncDescriptor m_duplicate;  // of its descriptor, after that
    bool m_bSyncing = false;      // a sync is running
    bool m_bBorrowed = false;     // on the sync thread, with the stream's own descriptor
    bool m_bScheduled = false;
    bool m_bNewName = true;  // no sync has succeeded yet
    CmUint32 m_dwFailures = 0;
    CFileRanges m_unsynced{1};
};
