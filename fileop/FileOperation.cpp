#include "fileop/FileOperation.h"

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
