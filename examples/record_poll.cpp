// An asynchronous recorder whose event loop waits in poll for two descriptors: a pipe from which it
// records lines, and the library's descriptor.
//
//     record_poll [DIRECTORY]

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "cachefile.h"
#include "tools/HostPath.h"

namespace {

constexpr CmUint32 c_dwRecordID = 3;
constexpr char c_szFile[] = "lines.txt";

bool Complain(const char* lpStep, const char* lpReason) {
    std::fprintf(stderr, "record_poll: %s: %s\n", lpStep, lpReason);
    return false;
}

bool Succeeded(const char* lpStep, CmInt32 lResult) {
    return lResult == CACHE_OK || Complain(lpStep, CacheFileResultText(lResult));
}

// The source of the data: a thread that writes lines into a pipe and closes it. All lines fit into
// the pipe's buffer, so the thread ends even if the recorder fails and does not read.
class CLineSource {
 public:
    CLineSource() {
        if (::pipe(m_aEnds) != 0) return;
        m_thread = std::thread([nEnd = m_aEnds[1]] { WriteLines(nEnd); });
    }
    ~CLineSource() {
        if (!IsOpen()) return;
        m_thread.join();
        ::close(m_aEnds[0]);
    }
    CLineSource(const CLineSource&) = delete;
    CLineSource& operator=(const CLineSource&) = delete;

    bool IsOpen() const { return m_aEnds[0] >= 0; }
    int GetDescriptor() const { return m_aEnds[0]; }

 private:
    static void WriteLines(int nEnd) {
        for (int nLine = 1; nLine <= 50; ++nLine) {
            const std::string strLine = "line " + std::to_string(nLine) + "\n";
            if (::write(nEnd, strLine.data(), strLine.size()) < 0) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        ::close(nEnd);
    }

    int m_aEnds[2] = {-1, -1};
    std::thread m_thread;
};

// Records the lines of the source. Its callbacks run on this thread, inside RunPending and the
// shutdown.
class CRecorder : public IFileOpSink {
 public:
    explicit CRecorder(CWriteFileHandler& aHandler) : m_handler(aHandler) {}

    bool Record(const CLineSource& aSource) {
        return Succeeded("initialize", m_handler.Initialize(this)) &&
               Succeeded("open", m_handler.OpenWritingFile(c_szFile, m_dwHandle)) &&
               Loop(aSource.GetDescriptor()) && Succeeded("close", m_handler.CloseFile(m_dwHandle));
    }

    bool HasFailed() const { return m_bFailed; }
    std::uint64_t GetWritten() const { return m_qwWritten; }

    void OnFileOpStatus(CCacheFileManager::LinkType /*aLinkType*/,
                        CCacheFileManager::OpType /*aOpType*/, CmInt32 aResult) override {
        if (!Succeeded("worker", aResult)) m_bFailed = true;
    }
    void OnDataReady(unsigned char* lpData, CmUint32 /*dwLength*/,
                     const tagDataInfo& /*aDataInfo*/) override {
        delete[] lpData;  // the result of a read; a recorder does not read
    }

 private:
    bool Loop(int nSource) {
        int nWake = -1;
        if (!Succeeded("descriptor", CCmCallerThread::GetWakeDescriptor(nWake))) return false;
        // The host only polls the library's descriptor. It is readable while callbacks are pending.
        pollfd aWaits[] = {{nWake, POLLIN, 0}, {nSource, POLLIN, 0}};
        bool bMore = true;
        while (bMore && !m_bFailed) {
            if (::poll(aWaits, 2, -1) < 0) {
                if (errno == EINTR) continue;
                return Complain("poll", std::strerror(errno));
            }
            if (aWaits[0].revents != 0 && !Succeeded("run", CCmCallerThread::RunPending()))
                return false;
            if (aWaits[1].revents != 0 && !TakeLines(nSource, bMore)) return false;
        }
        return !m_bFailed;
    }

    bool TakeLines(int nSource, bool& bMore) {
        unsigned char aBytes[4096];
        const ssize_t nRead = ::read(nSource, aBytes, sizeof aBytes);
        if (nRead < 0) return errno == EINTR || Complain("read", std::strerror(errno));
        bMore = nRead > 0;
        m_qwWritten += static_cast<std::uint64_t>(nRead);
        return Succeeded("write",
                         m_handler.WriteData(m_dwHandle, aBytes, static_cast<CmUint32>(nRead),
                                             CCacheFileManager::GetMaxDword()));
    }

    CWriteFileHandler& m_handler;
    CmUint32 m_dwHandle = 0;
    std::uint64_t m_qwWritten = 0;
    bool m_bFailed = false;
};

}  // namespace

int main(int argc, char** argv) {
    const CCmCallerThreadGuard aGuard;
    if (!Succeeded("attach", aGuard.GetResult())) return 1;
    const CLineSource aSource;
    if (!aSource.IsOpen()) {
        Complain("pipe", std::strerror(errno));
        return 1;
    }

    const std::string strDirectory = argc > 1 ? argv[1] : "recordings";
    CCacheFileManager& aManager = CCacheFileManager::Instance();
    aManager.SetTempHomeDir(HostDirectory(strDirectory));
    CHandlerPtr<CWriteFileHandler> pHandler(aManager.CreateWriteFileHandler(c_dwRecordID, 1));
    if (!pHandler) {
        Succeeded("create a handler", CACHE_ERR_OUT_OF_MEMORY);
        return 1;
    }

    CRecorder aRecorder(*pHandler);
    const bool bRecorded = aRecorder.Record(aSource);
    CacheFileShutdown();  // returns after everything is written and reported
    pHandler.reset();
    if (!bRecorded || aRecorder.HasFailed()) return 1;
    if (CCacheFileManager::GetLostBytes() > 0) {
        Complain("lost bytes", "not everything could be written");
        return 1;
    }
    std::printf("wrote %llu bytes to %s/%u/%s\n",
                static_cast<unsigned long long>(aRecorder.GetWritten()), strDirectory.c_str(),
                static_cast<unsigned>(c_dwRecordID), c_szFile);
    return 0;
}
