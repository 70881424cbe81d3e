#pragma once

#include <cachefile.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bench/Bench.h"

/// Containers of equal streams, and a player that reads them. Paths are in the library's form.

constexpr CmUint32 c_dwStreamSize = 16;

inline tagFileDescriber DescriberOf(std::size_t i) {
    return {4, 4, static_cast<CmUint32>(i * 1000 + 4), 0};
}
inline tagDataInfo InfoOf(std::size_t i) { return {4, static_cast<CmUint32>(i * 1000 + 4), 0, 4}; }

inline void MakeContainer(const std::string& strPath, std::size_t nEntries,
                          CmUint32 dwIndexType = Index_Packed) {
    CContainerWriter aWriter;
    const unsigned char aBytes[c_dwStreamSize] = {};
    Require(aWriter.SetIndexType(dwIndexType) == CACHE_OK, "SetIndexType");
    for (std::size_t i = 0; i < nEntries; ++i)
        Require(aWriter.AddStream(DescriberOf(i), aBytes, c_dwStreamSize) == CACHE_OK, "AddStream");
    Require(aWriter.Write(strPath) == CACHE_OK, "CContainerWriter::Write");
}

/// A player with an open container, in either mode.
class CContainerPlayer final : private IFileOpSink {
 public:
    CContainerPlayer(const std::string& strPath, bool bAsync)
        : m_pHandler(CCacheFileManager::Instance().CreatePlayFileHandler(1, 1, bAsync)) {
        if (bAsync) m_attached.emplace();
        Require(m_pHandler != nullptr, "a play handler");
        m_pHandler->Initialize(this);
        Require(m_pHandler->OpenDownloadedFile(strPath, m_vecStreams) == CACHE_OK,
                "OpenDownloadedFile");
    }
    ~CContainerPlayer() {
        m_pHandler->Destroy();
        CCmCallerThread::RunPending();
        delete[] m_lpBuffer;
    }

    std::size_t Size() const { return m_vecStreams.size(); }
    void Read(std::size_t i) {
        unsigned char* const lpBuffer = std::exchange(m_lpBuffer, nullptr);
        Require(m_pHandler->ReadData(InfoOf(i), lpBuffer, 0, c_dwStreamSize) == CACHE_OK,
                "ReadData");
        while (!m_lpBuffer) CCmCallerThread::WaitAndRun(1000);
    }

 private:
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) override {
        Require(dwLength == c_dwStreamSize, "all bytes of a read");
        m_lpBuffer = lpData;
    }
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) override {}

    std::optional<CCmCallerThreadGuard> m_attached;  // in asynchronous mode
    CPlayFileHandler* const m_pHandler;
    std::vector<tagFileDescriber> m_vecStreams;
    unsigned char* m_lpBuffer = new unsigned char[c_dwStreamSize];
};
