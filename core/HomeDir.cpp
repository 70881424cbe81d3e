#include "core/HomeDir.h"

#include <new>

#include "core/CacheFileManager.h"
#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

CmInt32 CHomeDir::OutOfMemory() const {
    TraceError(m_lpOperation, "->Low memory to change a directory", " this=", m_pObject);
    return CACHE_ERR_OUT_OF_MEMORY;
}

CmInt32 CHomeDir::Set(const CCmString& strNew) try {
    CCmString strResult(strNew);  // a copy, so that a failure leaves the directory as it was
    if (!strResult.empty() && strResult.back() != CCacheFileManager::s_cWinPathSeparator)
        strResult += CCacheFileManager::s_cWinPathSeparator;
    m_strDirectory.swap(strResult);
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return OutOfMemory();
}

CmInt32 CHomeDir::AppendRecord(CmUint32 dwRecordID) try {
    CCmString strAdded(CCacheFileManager::Instance().GetTempHomeDir());
    strAdded += std::to_string(dwRecordID);
    strAdded += CCacheFileManager::s_cWinPathSeparator;
    m_strDirectory += strAdded;
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return OutOfMemory();
}
