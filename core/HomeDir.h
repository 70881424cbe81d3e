#pragma once

#include "platform/CmTypes.h"

/// Changes the directories of the manager and the handlers.
///
/// An object is created for one call, on the stack of the thread that drives the handlers. It does
/// not throw. If there is no memory, the directory is unchanged, a line with the operation and the
/// object is traced, and the result is CACHE_ERR_OUT_OF_MEMORY.
class CHomeDir {
 public:
    /// The operations change strDirectory. lpOperation ("CLASS::OPERATION") is for trace lines; it
    /// must stay valid while the object exists.
    CHomeDir(CCmString& strDirectory, const char* lpOperation, const void* pObject)
        : m_strDirectory(strDirectory), m_lpOperation(lpOperation), m_pObject(pObject) {}

    /// Sets the directory to strNew and appends a backslash, unless it is empty or ends with one.
    CmInt32 Set(const CCmString& strNew);

    /// Appends strHome, the record identifier in decimal and a backslash.
    CmInt32 AppendRecord(const CCmString& strHome, CmUint32 dwRecordID);

 private:
    CmInt32 OutOfMemory() const;

    CCmString& m_strDirectory;
    const char* const m_lpOperation;
    const void* const m_pObject;
};
