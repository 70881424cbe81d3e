#include "fileop/SystemError.h"

#include <cerrno>

#include "platform/CmResult.h"

CmInt32 cachefile_internal::SystemErrorToResult(int nErrno, FileAction aAction) {
    if (nErrno == ENOSPC) return CACHE_ERR_DISK_FULL;
    if (aAction == FileAction::Write) return CACHE_ERR_FAILED;
    if (nErrno == ENOENT) return CACHE_ERR_NOT_FOUND;
    if (nErrno != EACCES) return CACHE_ERR_FAILED;
    return aAction == FileAction::OpenForWriting ? CACHE_ERR_WRITE_DENIED : CACHE_ERR_ACCESS_DENIED;
}
