#include "core/HomeDir.h"

#include <new>

#include "core/CacheFileManager.h"
#include "platform/CmResult.h"
#include "platform/CmTrace.h"

namespace {

CmInt32 OutOfMemory() {
    CM_TRACE_ERROR("HomeDir->Low memory to change a directory");
    return CACHE_ERR_OUT_OF_MEMORY;
}

}  // namespace

CmInt32 SetDirectory(CCmString& strDirectory, const CCmString& strNew) try {
    CCmString strResult(strNew);
    if (!strResult.empty() && strResult.back() != CCacheFileManager::s_cWinPathSeparator)
        strResult += CCacheFileManager::s_cWinPathSeparator;
    strDirectory.swap(strResult);
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return OutOfMemory();
}

CmInt32 AppendRecordDirectory(CCmString& strDirectory, CmUint32 dwRecordID) try {
    CCmString strAdded(CCacheFileManager::Instance().GetTempHomeDir());
    strAdded += std::to_string(dwRecordID);
    strAdded += CCacheFileManager::s_cWinPathSeparator;
    strDirectory += strAdded;
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return OutOfMemory();
}
