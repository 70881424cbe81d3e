#include "download/PackFailure.h"

#include <cerrno>

#include "platform/CmTraceLine.h"

CmInt32 cachefile_internal::ReportSystemError(const void* pObject, const char* lpWhat,
                                              const CCmString& strPath, FileAction aAction) {
    const int nErrno = errno;
    TraceError("CContainerWriter::Write->", lpWhat, " error=", nErrno, " file=", strPath,
               " this=", pObject);
    const CmInt32 lResult = SystemErrorToResult(nErrno, aAction);
    errno = nErrno;
    return lResult;
}

CmInt32 cachefile_internal::KeepFailure(CContainerWriter::tagFailure& aFailure,
                                        const CCmString& strFile, const char* lpReason, int nErrno,
                                        CmInt32 lResult) {
    aFailure.lpReason = lpReason;
    aFailure.nErrno = nErrno;
    aFailure.strFile = strFile;
    return lResult;
}
