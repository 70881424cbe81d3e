#include "fileop/FileOperation.h"

#include <new>

#include "fileop/BufferDecorate.h"
#include "fileop/LocalFile.h"
#include "platform/CmImmortal.h"

CFileOperationFactory* CFileOperationFactory::Instance() {
    return &CmImmortal<CFileOperationFactory>();
}

IFileOperation* CFileOperationFactory::CreateLocalFile(int bIsDownloadFile) {
    return new (std::nothrow) CLocalFile(bIsDownloadFile);
}

IFileOperation* CFileOperationFactory::CreateBufferDecorate(IFileOperation* pFile,
                                                            CmUint32 dwBufferSize) {
    return new (std::nothrow) CBufferDecorate(pFile, dwBufferSize);
}
