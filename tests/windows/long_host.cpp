// A host as they are written on Windows: plain long and unsigned long, no name of the library's
// own for integers. That it compiles is half of the test.

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cachefile.h"

class CHostSink : public IFileOpSink {
 public:
    virtual void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType,
                                long aResult) {
        m_lWorst = aResult ? aResult : m_lWorst;
    }
    virtual void OnDataReady(unsigned char* lpData, unsigned long dwLength, const tagDataInfo&) {
        m_strData.assign(reinterpret_cast<char*>(lpData), dwLength);
        delete[] lpData;
    }

    long m_lWorst = 0;
    std::string m_strData;
};

static long Record(CHostSink& aSink) {
    unsigned char aBytes[] = "recorded";
    unsigned char* lpData = aBytes;
    unsigned long dwHandle = 0;
    CWriteFileHandler* pWriter = CCacheFileManager::Instance().CreateWriteFileHandler(8, 1);
    long lResult = pWriter->Initialize(&aSink);
    if (lResult == 0) lResult = pWriter->OpenWritingFile("long.dat", dwHandle);
    if (lResult == 0)
        lResult = pWriter->WriteData(dwHandle, lpData, 8, CCacheFileManager::GetMaxDword());
    if (lResult == 0) lResult = pWriter->CloseFile(dwHandle);
    pWriter->Destroy();
    return lResult ? lResult : CacheFileShutdown();
}

static long Play(CHostSink& aSink) {
    tagFileDescriber aDescriber = {1, 2, 8001, 0};
    tagDataInfo aInfo = {1, 8001, 8, 2};
    CPlayFileHandler* pPlayer = CCacheFileManager::Instance().CreatePlayFileHandler(8, 0, 0);
    long lResult = pPlayer->Initialize(&aSink);
    if (lResult == 0) lResult = pPlayer->OpenRecordFile("long.dat", aDescriber, 0);
    unsigned char* lpBuffer = new unsigned char[8];
    unsigned long dwLength = 8;
    if (lResult == 0) lResult = pPlayer->SyncReadData(aInfo, lpBuffer, 0, dwLength);
    if (lResult == 0) lResult = pPlayer->ReadData(aInfo, lpBuffer, 0, dwLength);
    if (lResult != 0) delete[] lpBuffer;
    pPlayer->Destroy();
    return lResult;
}

int main() {
    static_assert(sizeof(long) == 4, "this host is for systems with 32-bit long");
    CCmCallerThreadGuard aAttached;
    CHostSink aSink;
    const long lRecorded = Record(aSink);
    const long lPlayed = Play(aSink);
    std::printf("recorded %ld, played %ld, worst status %ld, data '%s'\n", lRecorded, lPlayed,
                aSink.m_lWorst, aSink.m_strData.c_str());
    return lRecorded || lPlayed || aSink.m_lWorst || aSink.m_strData != "recorded";
}
