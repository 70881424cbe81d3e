#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/CmFile.h"

/// An open directory in which new names wait for a sync. The files that have one there share it, so
/// that one sync serves all of them.
///
/// Owned by the tickets of these files; the last one closes it. Any thread. The mutex is not held
/// during calls of the system; who needs a sync that another thread is carrying out waits for it.
class CDirectorySync {
 public:
    explicit CDirectorySync(int nDirectory, const CmFile::tagFileId& aId)
        : m_nDirectory(nDirectory), m_id(aId) {}
    ~CDirectorySync();
    CDirectorySync(const CDirectorySync&) = delete;
    CDirectorySync& operator=(const CDirectorySync&) = delete;

    /// What a file needs: a sync of the directory that begins after the ticket was made.
    struct tagTicket {
        std::shared_ptr<CDirectorySync> pDirectory;
        std::uint64_t qwNumber;
    };

    /// Adds the tickets for the names of strPath to vecTickets: that of the file, which pStream has
    /// open, and those of its directories except the first component, which is never created.
    /// Returns 0, or the errno of why a directory could not be opened. A directory above that of
    /// the file is left out if the process may not read it: it has not created names there. May
    /// throw std::bad_alloc.
    static int TakeTickets(const CCmString& strPath, const CmPlace& aPlace, std::FILE* pStream,
                           std::vector<tagTicket>& vecTickets);

    /// Has the names up to the ticket's number reach the disk, unless they have. 0 or an errno.
    /// After a failure the next call tries again. Unlike the pages of a file, names are metadata: a
    /// file system that cannot write them stops, and does not forget them.
    int Sync(std::uint64_t qwNumber);

 private:
    static tagTicket Take(int nDirectory, const CmFile::tagFileId& aId);
    std::uint64_t NewNumber();

    const int m_nDirectory;
    const CmFile::tagFileId m_id;

    std::mutex m_mutex;
    std::condition_variable m_ended;  // a sync has ended
    // Guarded by m_mutex.
    std::uint64_t m_qwLast = 0;  // of the tickets
    std::uint64_t m_qwDone = 0;  // the last ticket that was served
    bool m_bSyncing = false;
};
