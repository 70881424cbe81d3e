#include "fileop/FileOperation.h"

#include <new>

#include "fileop/BufferDecorate.h"
#include "fileop/LocalFile.h"
#include "platform/CmEvent.h"
#include "platform/CmNeverDestroyed.h"

CmInt32 IFileOperation::OpenAt(const CCmString& strPath, int bWrite, const CmPlace& /*aPlace*/) {
    return Open(strPath, bWrite);
}

CmInt32 IFileOperation::SendToReader(ICmEvent* pEvent) {
    const CmInt32 lResult = pEvent->OnEventFire();
    pEvent->OnDestorySelf();
    return lResult;
}

CFileOperationFactory* CFileOperationFactory::Instance() {
    return &CmNeverDestroyed<CFileOperationFactory>();
}

IFileOperation* CFileOperationFactory::CreateLocalFile(int bIsDownloadFile) {
    return new (std::nothrow) CLocalFile(bIsDownloadFile);
}

IFileOperation* CFileOperationFactory::CreateBufferDecorate(IFileOperation* pFile,
                                                            CmUint32 dwBufferSize) {
    return new (std::nothrow) CBufferDecorate(pFile, dwBufferSize);
}
