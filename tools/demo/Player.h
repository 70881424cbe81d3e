#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/FileOpSink.h"
#include "player/PlayFileHandler.h"
#include "tools/demo/Source.h"

/// Gives the bytes of a source in runs of any length.
class CSourceReader {
 public:
    explicit CSourceReader(ISource& aSource);

    /// The next dwLength bytes, fewer at the end.
    std::string Read(std::size_t nLength);

 private:
    ISource& m_source;
    std::string m_strPiece;
    std::size_t m_nUsed = 0;  // of the piece
};

/// Reads streams back through a play handler, in runs of odd sizes, and compares each run with the
/// stream's source. In asynchronous mode several reads are under way at a time; needs the calling
/// thread attached then. Failures and differences are CDemoErrors.
class CPlayer final : public IFileOpSink {
 public:
    /// For record files of the recording dwRecordID in the library's home directory, or for a
    /// container.
    CPlayer(CmUint32 dwRecordID, bool bContainer, bool bAsync);

    void OpenRecordFiles(const Sources& vecSources);

    /// The container has to list exactly the sources' streams, in their order.
    void OpenContainer(const std::string& strPath, const Sources& vecSources);

    /// Reads the whole stream. Returns the seconds it took, the comparison included.
    double Play(ISource& aSource);

    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;

 private:
    struct Destroyer {
        void operator()(CPlayFileHandler* pHandler) const { pHandler->Destroy(); }
    };

    void Ask(const tagDataInfo& aInfo, std::uint64_t qwOffset, CmUint32 dwLength);
    void Await(int nMostUnderWay);
    std::string Describe(const std::string& strWhat) const;

    const bool m_bContainer;
    const bool m_bAsync;
    const std::unique_ptr<CPlayFileHandler, Destroyer> m_pHandler;

    // The stream that is played.
    const ISource* m_pSource = nullptr;
    std::unique_ptr<CSourceReader> m_pWanted;
    std::uint64_t m_qwCompared = 0;
    int m_nUnderWay = 0;
    std::string m_strFailure;  // callbacks throw nothing
};
