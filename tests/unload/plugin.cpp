#include <vector>

#include "cachefile.h"

/// A plug-in of a host, which is loaded and unloaded together with the library. It records, and
/// shuts the library down if bShutDown is set. Returns 0 on success.
extern "C" CmInt32 RecordSomething(int bAsync, int bShutDown) {
    const CCmCallerThreadGuard aAttached;
    const std::vector<unsigned char> vecBytes(100'000, 'x');
    CWriteFileHandler* const pHandler =
        CCacheFileManager::Instance().CreateWriteFileHandler(9, bAsync);
    CmUint32 dwHandle = 0;
    CmInt32 lResult = pHandler->Initialize(nullptr);
    if (lResult == 0) lResult = pHandler->OpenWritingFile("unload.dat", dwHandle);
    for (int i = 0; lResult == 0 && i < 20; ++i)
        lResult = pHandler->WriteData(dwHandle, vecBytes.data(), 100'000, 0xFFFFFFFF);
    pHandler->Destroy();
    if (bShutDown) CacheFileShutdown();
    return lResult;
}
