#include "fileop/FileOperation.h"

#include <exception>
#include <new>

#include "fileop/BufferDecorate.h"
#include "fileop/LocalFile.h"
#include "platform/CmEvent.h"
#include "platform/CmNeverDestroyed.h"

CmInt32 IFileOperation::WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) try {
    return WriteData(CCmString(lpData, nLength), dwOffset);
} catch (const std::exception&) {  // no memory, or more than a string can hold
    return CACHE_ERR_OUT_OF_MEMORY;
}

CmInt32 IFileOperation::OpenAt(const CCmString& strPath, int bWrite, const CmPlace& /*aPlace*/) {
    return Open(strPath, bWrite);
}

CmInt32 IFileOperation::GiveData(CCmString& strData, CmUint32 dwOffset) {
    return WriteData(strData, dwOffset);
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
