#include "fileop/FilePathBuilder.h"

#include <cerrno>

#include "core/CacheFileManager.h"
#include "fileop/SystemError.h"
#include "platform/CmFile.h"
#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

namespace {

CmInt32 EnsureDirectory(const CCmString& strDirectory, const CmPlace& aPlace) {
    if (CmFile::Exists(strDirectory, aPlace) || CmFile::MakeDirectory(strDirectory, aPlace) == 0)
        return CACHE_OK;
    const int nErrno = errno;
    if (nErrno == EEXIST) return CACHE_OK;  // another thread or process has created it
    TraceError("CFilePathBuilder::BuildPath->Build Error=", nErrno);
    return SystemErrorToResult(nErrno, FileAction::MakeDirectory);
}

}  // namespace

CmInt32 CFilePathBuilder::BuildPath(const CCmString& strPath, const CmPlace& aPlace) {
    constexpr auto npos = CCmString::npos;
    std::size_t nSeparator = strPath.find(CCacheFileManager::s_cWinPathSeparator);
    if (nSeparator == npos) return CACHE_ERR_BAD_PATH;
    for (;;) {
        nSeparator = strPath.find(CCacheFileManager::s_cWinPathSeparator, nSeparator + 1);
        if (nSeparator == npos) return CACHE_OK;
        const CmInt32 lResult = EnsureDirectory(strPath.substr(0, nSeparator + 1), aPlace);
        if (lResult != CACHE_OK) return lResult;
    }
}
