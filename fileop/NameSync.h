#pragma once

#include <vector>

#include "fileop/DirectorySync.h"

/// Syncs the name of one file and those of the directories in its path.
///
/// A member of CFileSync. The directories are opened when the file is opened, because later the
/// path may lead elsewhere. If one of them cannot be opened then, for example because the process
/// has no descriptor left, the object keeps the path, and each sync tries to open them again. After
/// a successful sync nothing is left to do, and the directories are closed. There is no lock: after
/// the construction only the sync that is running uses the object.
class CNameSync {
 public:
    /// For a file that was opened with that path and place; nFile is its descriptor. A directory
    /// that cannot be opened is traced. Throws std::bad_alloc.
    CNameSync(const CCmString& strPath, const CmPlace& aPlace, int nFile);

    /// Returns 0 or an errno. nFile is a descriptor of the file. After a failure the next call
    /// tries again.
    int Sync(int nFile);

 private:
    int OpenDirectories(int nFile);

    // Empty after all directories have been opened.
    CCmString m_strPath;
    CmPlace m_place;

    std::vector<CDirectorySync::tagTicket> m_vecTickets;
};
