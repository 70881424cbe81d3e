#include "fileop/DirectorySync.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "core/CacheFileManager.h"
#include "platform/CmMutex.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmSystem.h"

namespace {

/// The directories that are open. It does not own them. In the child of a fork there are none: a
/// sync that runs in the parent would never end there.
class COpenDirectories {
 public:
    COpenDirectories();

    CCmMutexThread m_mutex;
    std::vector<std::weak_ptr<CDirectorySync>> m_vecDirectories CM_GUARDED_BY(m_mutex);
};

COpenDirectories& OpenDirectories() { return CmNeverDestroyed<COpenDirectories>(); }

void BeforeFork() CM_NO_LOCK_ANALYSIS { OpenDirectories().m_mutex.Lock(); }
void AfterForkInParent() CM_NO_LOCK_ANALYSIS { OpenDirectories().m_mutex.UnLock(); }
void AfterForkInChild() CM_NO_LOCK_ANALYSIS {
    OpenDirectories().m_vecDirectories.clear();
    OpenDirectories().m_mutex.UnLock();
}

COpenDirectories::COpenDirectories() {
    CmRegisterForkHandlers(BeforeFork, AfterForkInParent, AfterForkInChild);
}

}  // namespace

std::uint64_t CDirectorySync::NewNumber() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    return ++m_qwLast;
}

CDirectorySync::tagTicket CDirectorySync::Take(CSyncDescriptor aDirectory,
                                               const CmFile::tagFileId& aId) {
    const auto pNew = std::make_shared<CDirectorySync>(std::move(aDirectory), aId);
    std::shared_ptr<CDirectorySync> pFound;  // declared before the lock: released after it
    COpenDirectories& aOpen = OpenDirectories();
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(aOpen.m_mutex);
        auto& vecOpen = aOpen.m_vecDirectories;
        vecOpen.erase(std::remove_if(vecOpen.begin(), vecOpen.end(),
                                     [](const auto& pWeak) { return pWeak.expired(); }),
                      vecOpen.end());
        vecOpen.push_back(pNew);
        // pNew is the last element: it is found if there is no earlier one of the directory.
        for (std::size_t i = 0; i < vecOpen.size(); ++i) {
            std::shared_ptr<CDirectorySync> pOpen = vecOpen[i].lock();
            if (!pOpen || !(pOpen->m_id == aId)) continue;
            pFound = std::move(pOpen);
            if (pFound != pNew) vecOpen.pop_back();
            break;
        }
    }
    const std::uint64_t qwNumber = pFound->NewNumber();
    return {std::move(pFound), qwNumber};
}

int CDirectorySync::TakeTickets(const CCmString& strPath, const CmPlace& aPlace, int nFile,
                                std::vector<tagTicket>& vecTickets) {
    const char cSeparator = CCacheFileManager::s_cWinPathSeparator;
    const std::size_t nFirst = strPath.find(cSeparator);
    int nErrno = 0;
    std::size_t nEnd = strPath.size();
    while (nEnd != CCmString::npos && nEnd > nFirst) {
        const bool bFile = nEnd == strPath.size();
        CmFile::tagFileId aId;
        CSyncDescriptor aDirectory(
            CmFile::OpenDirectoryOf(strPath.substr(0, nEnd), aPlace, bFile ? nFile : -1, aId));
        if (aDirectory.Get() >= 0)
            vecTickets.push_back(Take(std::move(aDirectory), aId));
        else if (nErrno == 0 && (bFile || errno != EACCES))
            nErrno = errno;
        nEnd = strPath.rfind(cSeparator, nEnd - 1);
    }
    return nErrno;
}

int CDirectorySync::Sync(std::uint64_t qwNumber) {
    std::unique_lock<std::mutex> aLock(m_mutex);
    m_ended.wait(aLock, [&] { return !m_bSyncing || m_qwDone >= qwNumber; });
    if (m_qwDone >= qwNumber) return 0;
    m_bSyncing = true;
    const std::uint64_t qwLast = m_qwLast;
    aLock.unlock();
    const int nErrno = CmFile::SyncDirectory(m_directory.Get()) == 0 ? 0 : (errno ? errno : EIO);
    aLock.lock();
    m_bSyncing = false;
    if (nErrno == 0) m_qwDone = std::max(m_qwDone, qwLast);
    aLock.unlock();
    m_ended.notify_all();
    return nErrno;
}
