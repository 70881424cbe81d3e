// An asynchronous recorder with its own event loop. The library's worker thread opens, writes and
// closes the files, and this thread receives its reports.
//
//     record_async [DIRECTORY]

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "cachefile.h"
#include "tools/HostPath.h"

namespace {

constexpr CmUint32 c_dwRecordID = 2;
constexpr char c_szFile[] = "samples.raw";
constexpr CmUint32 c_dwTickMilliseconds = 5;
constexpr int c_nPieces = 50;

bool Succeeded(const char* lpStep, CmInt32 lResult) {
    if (lResult == CACHE_OK) return true;
    std::fprintf(stderr, "record_async: %s: %s (%s)\n", lpStep, CacheFileResultText(lResult),
                 CacheFileResultName(lResult));
    return false;
}

// Receives the results of the operations. Every open is reported, a close or write only if it
// failed. The callbacks run on this thread, inside WaitAndRun or the shutdown.
class CReports : public IFileOpSink {
 public:
    void OnFileOpStatus(CCacheFileManager::LinkType /*aLinkType*/,
                        CCacheFileManager::OpType aOpType, CmInt32 aResult) override {
        const char* const lpStep = aOpType == CCacheFileManager::Op_Open    ? "open"
                                   : aOpType == CCacheFileManager::Op_Close ? "close"
                                                                            : "write";
        if (!Succeeded(lpStep, aResult)) m_bFailed = true;
        if (aOpType == CCacheFileManager::Op_Open) m_bOpenReported = true;
    }

    void OnDataReady(unsigned char* lpData, CmUint32 /*dwLength*/,
                     const tagDataInfo& /*aDataInfo*/) override {
        delete[] lpData;  // the result of a read; a recorder does not read
    }

    bool HasFailed() const { return m_bFailed; }
    bool IsOpenReported() const { return m_bOpenReported; }

 private:
    bool m_bFailed = false;
    bool m_bOpenReported = false;
};

// The data that a microphone would deliver at this tick.
std::vector<unsigned char> MakePiece(int nPiece) {
    return std::vector<unsigned char>(1920, static_cast<unsigned char>(nPiece));
}

// The event loop: writes one piece at each tick, and runs callbacks between the ticks.
bool RecordPieces(CWriteFileHandler& aHandler, const CReports& aReports, CmUint32 dwHandle,
                  std::uint64_t& qwWritten) {
    for (int nPiece = 0; nPiece < c_nPieces; ++nPiece) {
        if (!Succeeded("run", CCmCallerThread::WaitAndRun(c_dwTickMilliseconds))) return false;
        if (aReports.HasFailed()) return false;  // the callback has printed the reason
        const std::vector<unsigned char> aPiece = MakePiece(nPiece);
        const CmUint32 dwLength = static_cast<CmUint32>(aPiece.size());
        // The piece is copied. The file need not be open yet: operations run in order.
        if (!Succeeded("write", aHandler.WriteData(dwHandle, aPiece.data(), dwLength,
                                                   CCacheFileManager::GetMaxDword())))
            return false;
        qwWritten += dwLength;
    }
    return true;
}

bool Record(CWriteFileHandler& aHandler, CReports& aReports, std::uint64_t& qwWritten) {
    if (!Succeeded("initialize", aHandler.Initialize(&aReports))) return false;
    CmUint32 dwHandle = 0;
    // 0 means that the open was queued. The sink receives its result.
    if (!Succeeded("open", aHandler.OpenWritingFile(c_szFile, dwHandle))) return false;
    return RecordPieces(aHandler, aReports, dwHandle, qwWritten) &&
           Succeeded("close", aHandler.CloseFile(dwHandle));
}

}  // namespace

int main(int argc, char** argv) {
    // Without this, asynchronous opens are refused. It detaches at the end of main.
    const CCmCallerThreadGuard aGuard;
    if (!Succeeded("attach", aGuard.GetResult())) return 1;

    const std::string strDirectory = argc > 1 ? argv[1] : "recordings";
    CCacheFileManager& aManager = CCacheFileManager::Instance();
    aManager.SetTempHomeDir(HostDirectory(strDirectory));
    CHandlerPtr<CWriteFileHandler> pHandler(aManager.CreateWriteFileHandler(c_dwRecordID, 1));
    if (!pHandler) {
        Succeeded("create a handler", CACHE_ERR_OUT_OF_MEMORY);
        return 1;
    }

    CReports aReports;
    std::uint64_t qwWritten = 0;
    const bool bRecorded = Record(*pHandler, aReports, qwWritten);

    // The file is closed or has failed. The shutdown comes before Destroy, so that the sink
    // receives even the last report: the sink is not called after Destroy.
    CacheFileShutdown();
    pHandler.reset();
    if (!bRecorded || aReports.HasFailed() || !aReports.IsOpenReported()) return 1;
    if (CCacheFileManager::GetLostBytes() > 0) {
        std::fprintf(stderr, "record_async: not everything could be written\n");
        return 1;
    }
    std::printf("wrote %llu bytes to %s/%u/%s\n", static_cast<unsigned long long>(qwWritten),
                strDirectory.c_str(), static_cast<unsigned>(c_dwRecordID), c_szFile);
    return 0;
}
