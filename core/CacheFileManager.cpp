#include "core/CacheFileManager.h"

#include <atomic>
#include <ctime>

#include "core/DataInfo.h"
#include "core/HomeDir.h"
#include "platform/CmFile.h"
#include "platform/CmNeverDestroyed.h"

namespace {

std::atomic<std::uint64_t> s_qwLostBytes{0};

}  // namespace

const char CCacheFileManager::s_cFileSeparator = '_';
const char CCacheFileManager::s_cFileEndSeparator = '.';
const char CCacheFileManager::s_cWinPathSeparator = '\\';
const char CCacheFileManager::s_cUniPathSeparator = '/';
const char CCacheFileManager::s_cFileMidSeparator = '-';

CCacheFileManager& CCacheFileManager::Instance() { return CmNeverDestroyed<CCacheFileManager>(); }

CCacheFileManager::CCacheFileManager() : m_strTempHomeDir(".\\kvr2\\") {}

CCacheFileManager::~CCacheFileManager() = default;

CCmString& CCacheFileManager::GetTempHomeDir() { return m_strTempHomeDir; }

void CCacheFileManager::SetTempHomeDir(const CCmString& strDir) {
    CHomeDir(m_strTempHomeDir, "CCacheFileManager::SetTempHomeDir", this).Set(strDir);
}

int CCacheFileManager::GetLinkStatusFromMap(std::uintptr_t dwHandlerKey, LinkType aLinkType) {
    if (HasNoLinkStatus()) return 1;
    CCmMutexGuardT<CCmMutexThreadRecursive> aGuard(m_mutexLinkStatus);
    const auto it = m_mapLinkStatus.find(dwHandlerKey);
    if (it == m_mapLinkStatus.end()) return 1;
    switch (aLinkType) {
        case Link_Primary:
            return it->second.bPrimaryDown == 0;
        case Link_Backup:
            return it->second.bBackupDown == 0;
        default:
            return 1;
    }
}

// The library has nothing to do before and after an operation; the calls keep their places.

void CCacheFileManager::BeforeOperation(LinkType /*aLinkType*/, std::uintptr_t /*dwHandlerKey*/) {}

void CCacheFileManager::AfterOperation(LinkType /*aLinkType*/) {}

void CCacheFileManager::DeleteTempFile(const CCmString& strPath) { CmFile::RemoveFile(strPath); }

void CCacheFileManager::DeleteTempDir(const CCmString& strPath) {
    CmFile::RemoveEmptyDirectory(strPath);
}

void CCacheFileManager::DeleteAllTemp(const std::vector<CCmString>& vecPaths) {
    for (const CCmString& strPath : vecPaths) DeleteTempFile(strPath);
}

CmUint32 CCacheFileManager::GetFileIDMagicNumber() const {
    return cachefile_internal::c_dwFileIDMagicNumber;
}

CmUint32 CCacheFileManager::GetMaxDword() { return 0xFFFFFFFF; }

CmInt32 CCacheFileManager::GetTickCount() const {
    return static_cast<CmInt32>(static_cast<CmUint32>(std::time(nullptr)));
}

CmUint32 CCacheFileManager::GetIntervalMs(CmUint32 /*dwStart*/) const {
    return static_cast<CmUint32>(GetTickCount());
}

std::uint64_t CCacheFileManager::GetLostBytes() {
    return s_qwLostBytes.load(std::memory_order_relaxed);
}

void CCacheFileManager::AddLostBytes(std::uint64_t qwBytes) {
    s_qwLostBytes.fetch_add(qwBytes, std::memory_order_relaxed);
}
