#pragma once

#include <vector>

#include "core/FileOpSink.h"
#include "download/ContainerFormat.h"
#include "download/StreamIndex.h"
#include "fileop/FileOperation.h"
#include "platform/CmEvent.h"

class CIndexReader;

/// Reads one downloaded recording for the play handler that owns it.
///
/// Owned by the play handler, which calls it on the host's thread. In asynchronous mode the index
/// is read on the R/W thread while the host's thread waits; nothing else is shared. Results of
/// reads go to OnDataReady of the play handler. Failures are traced and their codes returned.
class CDownloadFileHandler {
 public:
    explicit CDownloadFileHandler(int bAsync);
    ~CDownloadFileHandler();
    CDownloadFileHandler(const CDownloadFileHandler&) = delete;
    CDownloadFileHandler& operator=(const CDownloadFileHandler&) = delete;

    /// pParent is the owning play handler, which receives all results; no reference is taken.
    /// Returns CACHE_ERR_INVALID_ARG if it is null.
    CmInt32 Initialize(IFileOpStatus* pParent);

    /// Opens the container (strFilePath is UTF-8 and used unchanged) and reads its index.
    /// vecFileDescriber then has the streams of known kinds in the order of the index; after a
    /// failure it has those before the failure. In asynchronous mode it waits for the R/W thread.
    CmInt32 OpenDownloadedFile(const CCmString& strFilePath,
                               std::vector<tagFileDescriber>& vecFileDescriber);

    /// Reads the header and the index of the open container. Called on the thread that reads the
    /// file.
    CmInt32 InitFileInfo(std::vector<tagFileDescriber>& vecFileDescriber);

    /// See CPlayFileHandler::GetStreamLength.
    CmInt32 GetStreamLength(const tagDataInfo& aDataInfo, CmUint32& dwLength);

    /// Reads the index again for the lengths of all streams. Called on the thread that reads the
    /// file.
    CmInt32 InitLengths();

    /// Reads dwLength bytes at dwOffset of a stream into lpBuffer (from array new). If it returns
    /// 0, the library owns the buffer and passes it to OnDataReady: before the return in
    /// synchronous mode (the host may have freed this handler by then), later in asynchronous mode.
    /// After a failure the caller owns the buffer.
    CmInt32 ReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                     CmUint32 dwLength);

    /// Finds the index entry of the first stream that matches aDataInfo. Returns 0 or
    /// CACHE_ERR_NO_ENTRY.
    CmInt32 FindMRFD(const tagDataInfo& aDataInfo, tagMRFD& aEntry) const;

    /// Closes the container and keeps tables and headers.
    CmInt32 CloseFile();

    /// Closes the container and clears the tables. In asynchronous mode it also stops the R/W
    /// thread of the process. Always returns 0.
    CmInt32 Destroy();

    const tagEntryFileHeader& GetConfFileHeader() const { return m_ConfFileHeader; }

 private:
    class CKeeper;

    CmInt32 ReadFileHeader(CIndexReader& aReader);
    CmInt32 ReadConfHeader(CmUint32 dwDataOffset);
    CmInt32 WalkIndex(CIndexReader& aReader, std::vector<tagFileDescriber>& vecFileDescriber);
    CmInt32 SendWalk(std::vector<tagFileDescriber>& vecFileDescriber);

    const int m_bAsync;
    IFileOpStatus* m_pParent = nullptr;
    CRefPtr<IFileOperation> m_pFileOp;
    tagQXFFileHeader m_FileHeader{};
    tagEntryFileHeader m_ConfFileHeader{};
    CStreamIndex m_vecMRFD;
    CmUint32 m_dwEntriesRead = 0;  // when the container was opened, known or not

    // Filled by the first request for a length: one for each known entry of the index, in the order
    // of m_vecMRFD, which may repeat some of them at its end.
    bool m_bLengths = false;
    std::vector<CmUint32> m_vecLengths;
};

/// Reads the index on the R/W thread. It owns neither the handler nor the vector. Both outlive it,
/// because their owner waits for it.
class CSyncReadQXFInfo final : public ICmEvent {
 public:
    CSyncReadQXFInfo(CDownloadFileHandler* pDownload,
                     std::vector<tagFileDescriber>* pvecFileDescriber);
    ~CSyncReadQXFInfo() override;
    CmInt32 OnEventFire() override;

 private:
    CDownloadFileHandler* m_pDownload;
    std::vector<tagFileDescriber>* const m_pvecFileDescriber;
};

/// Reads the index again for the lengths, on the thread that reads the file. It does not own the
/// handler, which waits for it.
class CSyncReadLengths final : public ICmEvent {
 public:
    explicit CSyncReadLengths(CDownloadFileHandler& aDownload)
        : ICmEvent(0), m_download(aDownload) {}
    CmInt32 OnEventFire() override { return m_download.InitLengths(); }

 private:
    CDownloadFileHandler& m_download;
};
