// A part of a host that is loaded and unloaded with the library: records in asynchronous mode.

#include <string>

#include "cachefile.h"

/// Records some blocks and, unless told otherwise, shuts the library down. 0 on success.
extern "C" __declspec(dllexport) long RecordSomething(int bShutDown) {
    static unsigned char s_aBytes[100000];
    CCmCallerThreadGuard aAttached;
    CWriteFileHandler* pWriter = CCacheFileManager::Instance().CreateWriteFileHandler(9, 1);
    CmUint32 dwHandle = 0;
    long lResult = pWriter->Initialize(nullptr);
    if (lResult == 0) lResult = pWriter->OpenWritingFile("unload.dat", dwHandle);
    for (int i = 0; lResult == 0 && i < 50; ++i)
        lResult = pWriter->WriteData(dwHandle, s_aBytes, sizeof s_aBytes,
                                     CCacheFileManager::GetMaxDword());
    pWriter->Destroy();
    if (bShutDown) CacheFileShutdown();
    return lResult;
}
