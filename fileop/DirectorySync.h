#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "fileop/SyncDescriptor.h"
#include "platform/CmFile.h"

/// An open directory with new names that are not synced yet. All files with a new name in the
/// directory share it, so that one sync serves all of them.
///
/// Owned by the tickets of these files; the last ticket closes it. Any thread may use it. The mutex
/// is not held during system calls. Only one sync runs at a time; another thread waits for it, and
/// syncs again only if its ticket is newer.
class CDirectorySync {
 public:
    CDirectorySync(CSyncDescriptor aDirectory, const CmFile::tagFileId& aId)
        : m_directory(std::move(aDirectory)), m_id(aId) {}
    CDirectorySync(const CDirectorySync&) = delete;
    CDirectorySync& operator=(const CDirectorySync&) = delete;

    /// The need of a file for a sync of the directory that begins after the ticket was created.
    struct tagTicket {
        std::shared_ptr<CDirectorySync> pDirectory;
        std::uint64_t qwNumber;
    };

    /// Adds the tickets for the names of strPath to vecTickets: that of the file, which nFile has
    /// open, and those of its directories except the first component, which is never created.
    /// Returns 0, or the errno of the first directory that could not be opened. A directory above
    /// that of the file is left out if the process may not read it, on the assumption that the
    /// process has not created a name there. May throw std::bad_alloc.
    static int TakeTickets(const CCmString& strPath, const CmPlace& aPlace, int nFile,
                           std::vector<tagTicket>& vecTickets);

    /// Syncs the directory, unless a sync that began after the ticket qwNumber was created has
    /// succeeded. Returns 0 or an errno. After a failure the next call tries again: unlike the
    /// pages of a file, names are metadata, and a file system that cannot write them stops.
    int Sync(std::uint64_t qwNumber);

 private:
    static tagTicket Take(CSyncDescriptor aDirectory, const CmFile::tagFileId& aId);
    std::uint64_t NewNumber();

    const CSyncDescriptor m_directory;
    const CmFile::tagFileId m_id;

    std::mutex m_mutex;
    std::condition_variable m_ended;  // a sync has ended
    // Guarded by m_mutex.
    std::uint64_t m_qwLast = 0;  // number of the newest ticket
    std::uint64_t m_qwDone = 0;  // number of the newest ticket that is synced
    bool m_bSyncing = false;
};
