// The smallest player of record files: reads back the file that record_sync wrote, in synchronous
// mode. A read selects the file by its description.
//
//     play_record [DIRECTORY]        (record_sync's directory)

#include <cstdio>
#include <string>

#include "cachefile.h"
#include "tools/HostPath.h"

namespace {

constexpr CmUint32 c_dwRecordID = 1;
constexpr char c_szFile[] = "notes.txt";
// The description is the host's own: data type 1, file id 1001, kind 2.
constexpr tagFileDescriber c_aDescriber = {1, 2, 1001, 0};
constexpr tagDataInfo c_aInfo = {1, 1001, 0, 2};
constexpr CmUint32 c_dwRun = 4096;

bool Succeeded(const char* lpStep, CmInt32 lResult) {
    if (lResult == CACHE_OK) return true;
    std::fprintf(stderr, "play_record: %s: %s (%s)\n", lpStep, CacheFileResultText(lResult),
                 CacheFileResultName(lResult));
    return false;
}

// Receives the bytes. In synchronous mode the callback runs before ReadData returns.
class CBytes : public IFileOpSink {
 public:
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) override {}

    void OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) override {
        m_dwLast = dwLength;
        m_qwPlayed += dwLength;
        delete[] lpData;  // the host owns the buffer again
    }

    CmUint32 m_dwLast = 0;
    unsigned long long m_qwPlayed = 0;
};

bool Play(CPlayFileHandler& aHandler, CBytes& aBytes) {
    if (!Succeeded("initialize", aHandler.Initialize(&aBytes)) ||
        !Succeeded("open", aHandler.OpenRecordFile(c_szFile, c_aDescriber, 0)))
        return false;
    do {
        unsigned char* const lpBuffer = new unsigned char[c_dwRun];
        const CmInt32 lResult =
            aHandler.ReadData(c_aInfo, lpBuffer, static_cast<CmUint32>(aBytes.m_qwPlayed), c_dwRun);
        if (!Succeeded("read", lResult)) {
            delete[] lpBuffer;  // after a failure the host still owns it
            return false;
        }
    } while (aBytes.m_dwLast == c_dwRun);  // a short read means the end of the file
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string strDirectory = argc > 1 ? argv[1] : "recordings";
    CCacheFileManager& aManager = CCacheFileManager::Instance();
    aManager.SetTempHomeDir(HostDirectory(strDirectory));
    CBytes aBytes;  // destroyed after the handler, which calls it
    const CHandlerPtr<CPlayFileHandler> pHandler(
        aManager.CreatePlayFileHandler(c_dwRecordID, 0, 0));
    if (!pHandler) {
        Succeeded("create a handler", CACHE_ERR_OUT_OF_MEMORY);
        return 1;
    }
    if (!Play(*pHandler, aBytes)) return 1;
    std::printf("played %llu bytes of %s/%u/%s\n", aBytes.m_qwPlayed, strDirectory.c_str(),
                static_cast<unsigned>(c_dwRecordID), c_szFile);
    return 0;
}
