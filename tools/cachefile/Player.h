#pragma once

#include <memory>

#include "core/FileOpSink.h"
#include "player/PlayFileHandler.h"
#include "tools/cachefile/Recording.h"

/// Reads streams through the play handler, as a host does, in synchronous mode.
class CPlayer : private IFileOpSink {
 public:
    /// Opens a container, or the record file of *pStream in a directory. Of a damaged container the
    /// streams before the damage can be read. Throws CFailure.
    CPlayer(const tagRecording& aRecording, const tagFileDescriber* pStream);
    virtual ~CPlayer();
    CPlayer(const CPlayer&) = delete;
    CPlayer& operator=(const CPlayer&) = delete;

    /// Reads up to dwLength bytes of a stream. GetData returns them until the next read.
    CmInt32 Read(const tagFileDescriber& aStream, std::uint64_t qwOffset, CmUint32 dwLength);
    const unsigned char* GetData() const { return m_pData.get(); }
    CmUint32 GetLength() const { return m_dwLength; }

 private:
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;

    struct Destroyer {
        void operator()(CPlayFileHandler* pHandler) const { pHandler->Destroy(); }
    };

    std::unique_ptr<unsigned char[]> m_pData;
    CmUint32 m_dwLength = 0;
    std::unique_ptr<CPlayFileHandler, Destroyer> m_pHandler;
};
