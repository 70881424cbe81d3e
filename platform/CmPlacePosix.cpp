#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>

#include "platform/CmFilePosix.h"
#include "platform/CmMutex.h"
#include "platform/CmNeverDestroyed.h"

namespace {

using DirectoryPtr = std::shared_ptr<const CmPlace::tagDirectory>;

/// Remembers the directory that was opened last, so that queued opens in the same directory share
/// its descriptor. It holds no reference: the directory is closed with its last place.
///
/// One object for the process, never destroyed. Its mutex makes it safe for any thread: the caller
/// thread creates places, and the worker frees them.
class CLastDirectory {
 public:
    /// Returns the last directory if it has this identity and is still open, otherwise null.
    DirectoryPtr Find(const tagDirectoryId& aId) {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        // The object is still in memory, because its destructor locks this mutex before it ends. In
        // that case the weak pointer gives null. Nothing here may release a last reference, because
        // the destructor would lock the mutex again. The conversion of a weak pointer to another
        // type does that, so the weak pointer of the directory has the type that is needed.
        return m_pLast && m_pLast->aId == aId ? m_pLast->weak_from_this().lock() : nullptr;
    }

    void Set(const CmPlace::tagDirectory* pDirectory) {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        m_pLast = pDirectory;
    }

    void Forget(const CmPlace::tagDirectory* pDirectory) {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        if (m_pLast == pDirectory) m_pLast = nullptr;
    }

 private:
    CCmMutexThread m_mutex;
    const CmPlace::tagDirectory* m_pLast CM_GUARDED_BY(m_mutex) = nullptr;
};

CLastDirectory& LastDirectory() { return CmNeverDestroyed<CLastDirectory>(); }

/// Returns the identity of the file nFile, or of the current directory for AT_FDCWD.
tagDirectoryId IdOf([[maybe_unused]] int nFile) {
    tagDirectoryId aId;
#ifdef STATX_MNT_ID
    struct statx aStatus;
    const unsigned nWanted = STATX_INO | STATX_MNT_ID;
    if (::statx(nFile, "", AT_EMPTY_PATH | AT_NO_AUTOMOUNT, nWanted, &aStatus) != 0) return aId;
    aId.qwInode = aStatus.stx_ino;
    aId.qwMount = aStatus.stx_mnt_id;
    aId.qwDevice = std::uint64_t{aStatus.stx_dev_major} << 32 | aStatus.stx_dev_minor;
    aId.bKnown = (aStatus.stx_mask & nWanted) == nWanted;
#endif
    return aId;
}

/// Opens the current directory. Returns -1 with errno on failure.
int OpenCurrent() {
    return Repeated([] { return ::openat(AT_FDCWD, ".", O_PATH | O_DIRECTORY | O_CLOEXEC); });
}

}  // namespace

CmPlace::tagDirectory::~tagDirectory() {
    LastDirectory().Forget(this);
    ::close(nFile);
}

CmPlace CmPlace::Take(const CCmString& strPath) {
    CmPlace aPlace;
    if (!strPath.empty() && (strPath[0] == '\\' || strPath[0] == '/')) return aPlace;
    aPlace.m_pDirectory = LastDirectory().Find(IdOf(AT_FDCWD));
    if (aPlace.m_pDirectory) return aPlace;
    const int nFile = OpenCurrent();
    if (nFile < 0) {
        aPlace.m_nErrno = errno;
        return aPlace;
    }
    try {
        aPlace.m_pDirectory = std::make_shared<const tagDirectory>(nFile, IdOf(nFile));
    } catch (const std::bad_alloc&) {
        ::close(nFile);
        throw;
    }
    LastDirectory().Set(aPlace.m_pDirectory.get());
    return aPlace;
}
