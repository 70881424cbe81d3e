#include <cachefile.h>

#include "bench/Appender.h"
#include "tools/HostPath.h"

namespace {

/// The library as a host uses it. With a limit of pending bytes, the host waits when the library
/// refuses an append.
class CLibraryAppender final : public IAppender, private IFileOpSink {
 public:
    CLibraryAppender(const std::vector<std::string>& vecPaths, const tagLibraryUse& aUse)
        : m_dwWait(aUse.bRoomWakeUp ? 1000 : 1),
          m_pHandler(CCacheFileManager::Instance().CreateWriteFileHandler(1, aUse.bAsync)) {
        Require(m_pHandler && m_attached.GetResult() == CACHE_OK, "a write handler");
        CCacheFileManager::SetPendingLimit(aUse.qwLimit);
        Require(CCacheFileManager::SetSyncInterval(aUse.dwSyncInterval) == CACHE_OK,
                "a sync interval");
        CCacheFileManager::SetGatherAge(aUse.dwGatherAge);
        CCacheFileManager::SetRoomWakeUp(aUse.bRoomWakeUp ? 1 : 0);
        m_pHandler->Initialize(this);
        m_pHandler->SetHomeDir("");
        for (const std::string& strPath : vecPaths) {
            m_vecHandles.push_back(0);
            Require(m_pHandler->OpenWritingFile(HostPath(strPath), m_vecHandles.back()) == CACHE_OK,
                    "OpenWritingFile");
        }
        while (aUse.bAsync && m_nOpened < vecPaths.size()) CCmCallerThread::WaitAndRun(1000);
    }
    void Append(std::size_t nFile, const char* lpData, std::size_t nLength) override {
        for (;;) {
            const CmInt32 lResult = m_pHandler->WriteData(
                m_vecHandles[nFile], reinterpret_cast<const unsigned char*>(lpData),
                static_cast<CmUint32>(nLength), CCacheFileManager::GetMaxDword());
            if (lResult == CACHE_OK) return;
            Require(lResult == CACHE_ERR_TRY_AGAIN, "WriteData");
            CCmCallerThread::WaitAndRun(m_dwWait);
        }
    }
    void Finish() override {
        for (const CmUint32 dwHandle : m_vecHandles) m_pHandler->CloseFile(dwHandle);
        m_pHandler->Destroy();
        CacheFileShutdown();  // writes everything that was accepted
        CCacheFileManager::SetSyncInterval(0);
        CCacheFileManager::SetGatherAge(0);
        Require(CCacheFileManager::GetLostBytes() == 0, "all bytes written");
    }

 private:
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override {
        Require(aResult == CACHE_OK, "an operation on the worker");
        if (aOpType == CCacheFileManager::Op_Open) ++m_nOpened;
    }
    void OnDataReady(unsigned char*, CmUint32, const tagDataInfo&) override {}

    const CmUint32 m_dwWait;  // for room, in milliseconds
    CCmCallerThreadGuard m_attached;
    CWriteFileHandler* const m_pHandler;
    std::vector<CmUint32> m_vecHandles;
    std::size_t m_nOpened = 0;
};

}  // namespace

MakeAppender Library(const tagLibraryUse& aUse) {
    return [=](const auto& vecPaths) { return std::make_unique<CLibraryAppender>(vecPaths, aUse); };
}
