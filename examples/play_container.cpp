// Plays all streams of a container in asynchronous mode, with an event loop. The worker thread
// reads, and this thread receives the bytes.
//
//     play_container CONTAINER

#include <algorithm>
#include <cstdio>
#include <vector>

#include "cachefile.h"
#include "tools/HostPath.h"

namespace {

constexpr CmUint32 c_dwRun = 65536;
constexpr CmUint32 c_dwWaitMilliseconds = 1000;

bool Succeeded(const char* lpStep, CmInt32 lResult) {
    if (lResult == CACHE_OK) return true;
    std::fprintf(stderr, "play_container: %s: %s (%s)\n", lpStep, CacheFileResultText(lResult),
                 CacheFileResultName(lResult));
    return false;
}

// Reads one stream after the other; each result triggers the next read. A read past the end of a
// stream would continue into the next one, so the length is queried first.
class CStreams : public IFileOpSink {
 public:
    explicit CStreams(CPlayFileHandler& aHandler) : m_handler(aHandler) {}

    void Begin(const std::vector<tagFileDescriber>& vecStreams) {
        m_vecStreams = vecStreams;
        FindLength();
        AskForMore();
    }

    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType,
                        CmInt32 aResult) override {
        if (!Succeeded("read", aResult)) m_bFailed = true;
    }

    void OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) override {
        delete[] lpData;  // a real player would use the bytes
        m_qwPlayed += dwLength;
        m_dwOffset += dwLength;
        if (dwLength == 0)
            m_bFailed = true;  // the file has become shorter
        else
            AskForMore();
    }

    bool IsDone() const { return m_bFailed || m_nStream == m_vecStreams.size(); }
    bool HasFailed() const { return m_bFailed; }
    unsigned long long GetPlayed() const { return m_qwPlayed; }

 private:
    static tagDataInfo RequestFor(const tagFileDescriber& aStream) {
        return {aStream.wDataType, aStream.dwFileID, 0, aStream.byFileType};
    }

    void FindLength() {
        m_dwOffset = m_dwLength = 0;
        if (IsDone()) return;
        const tagDataInfo aInfo = RequestFor(m_vecStreams[m_nStream]);
        if (!Succeeded("length", m_handler.GetStreamLength(aInfo, m_dwLength))) m_bFailed = true;
    }

    void AskForMore() {
        while (!IsDone() && m_dwOffset == m_dwLength) {
            ++m_nStream;
            FindLength();
        }
        if (IsDone()) return;
        const CmUint32 dwLength = std::min(c_dwRun, m_dwLength - m_dwOffset);
        unsigned char* const lpBuffer = new unsigned char[dwLength];
        const tagDataInfo aInfo = RequestFor(m_vecStreams[m_nStream]);
        if (Succeeded("read", m_handler.ReadData(aInfo, lpBuffer, m_dwOffset, dwLength))) return;
        delete[] lpBuffer;  // after a failure the host still owns it
        m_bFailed = true;
    }

    CPlayFileHandler& m_handler;
    std::vector<tagFileDescriber> m_vecStreams;
    std::size_t m_nStream = 0;
    CmUint32 m_dwOffset = 0;
    CmUint32 m_dwLength = 0;
    unsigned long long m_qwPlayed = 0;
    bool m_bFailed = false;
};

bool Play(CPlayFileHandler& aHandler, CStreams& aStreams, const char* lpContainer) {
    std::vector<tagFileDescriber> vecStreams;
    if (!Succeeded("initialize", aHandler.Initialize(&aStreams)) ||
        !Succeeded("open", aHandler.OpenDownloadedFile(HostPath(lpContainer), vecStreams)))
        return false;
    aStreams.Begin(vecStreams);
    while (!aStreams.IsDone())
        if (!Succeeded("run", CCmCallerThread::WaitAndRun(c_dwWaitMilliseconds))) return false;
    return !aStreams.HasFailed();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: play_container CONTAINER\n");
        return 2;
    }
    const CCmCallerThreadGuard aGuard;
    if (!Succeeded("attach", aGuard.GetResult())) return 1;
    CHandlerPtr<CPlayFileHandler> pHandler(
        CCacheFileManager::Instance().CreatePlayFileHandler(1, 1, 1));
    if (!pHandler) {
        Succeeded("create a handler", CACHE_ERR_OUT_OF_MEMORY);
        return 1;
    }
    CStreams aStreams(*pHandler);
    const bool bPlayed = Play(*pHandler, aStreams, argv[1]);
    pHandler.reset();  // before the sink is destroyed; also ends the worker thread
    if (!bPlayed) return 1;
    std::printf("played %llu bytes of %s\n", aStreams.GetPlayed(), argv[1]);
    return 0;
}
