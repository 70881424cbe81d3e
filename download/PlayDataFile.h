#pragma once

#include <vector>

#include "core/DescriberTable.h"
#include "core/FileOpSink.h"
#include "download/ContainerFormat.h"
#include "fileop/FileOperation.h"
#include "platform/CmEvent.h"

/// Reads one downloaded recording for the play handler that owns it.
///
/// Made and deleted by the play handler, which calls it on the host's thread. In asynchronous mode
/// the walks along the index run on the R/W thread while the host's thread waits for them; nothing
/// else is shared. Results of reads go to the play handler's OnDataReady.
class CDownloadFileHandler {
 public:
    explicit CDownloadFileHandler(int bAsync);
    ~CDownloadFileHandler();
    CDownloadFileHandler(const CDownloadFileHandler&) = delete;
    CDownloadFileHandler& operator=(const CDownloadFileHandler&) = delete;

    /// pParent is the owning play handler, the receiver of all results; no reference is taken.
    /// CACHE_ERR_INVALID_ARG without one.
    CmInt32 Initialize(IFileOpStatus* pParent);

    /// Opens the container (a UTF-8 path, taken as it is) and walks its index. vecFileDescriber
    /// then lists the streams of known kinds in the order of the index; after a failure it holds
    /// those that came before it. In asynchronous mode it waits for the R/W thread.
    CmInt32 OpenDownloadedFile(const CCmString& strFilePath,
                               std::vector<tagFileDescriber>& vecFileDescriber);

    /// Walks header and index of the open container. On the thread that reads the file.
    CmInt32 InitFileInfo(std::vector<tagFileDescriber>& vecFileDescriber);

    /// See CPlayFileHandler::GetStreamLength.
    CmInt32 GetStreamLength(const tagDataInfo& aDataInfo, CmUint32& dwLength);

    /// Walks the index again for the lengths of all streams. On the thread that reads the file.
    CmInt32 InitLengths();

    /// Reads dwLength bytes of a stream at dwOffset within it into lpBuffer (from array new). After
    /// 0 the buffer belongs to the library and comes back through OnDataReady: before this returns
    /// in synchronous mode (the handler may be gone then), later in asynchronous mode. After a
    /// failure it stays the caller's.
    CmInt32 ReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                     CmUint32 dwLength);

    /// The index entry of the first stream that aDataInfo designates: 0 or CACHE_ERR_NO_ENTRY.
    CmInt32 FindMRFD(const tagDataInfo& aDataInfo, tagMRFD& aEntry) const;

    /// Closes the container; tables and headers stay.
    CmInt32 CloseFile();

    /// Ends everything, in asynchronous mode the R/W thread of the process too. Always 0.
    CmInt32 Destroy();

    const tagEntryFileHeader& GetConfFileHeader() const { return m_ConfFileHeader; }

 private:
    class CKeeper;

    CmInt32 ReadFileHeader();
    CmInt32 ReadConfHeader(CmUint32 dwDataOffset);
    CmInt32 WalkIndex(std::vector<tagFileDescriber>& vecFileDescriber);
    CmInt32 SendWalk(std::vector<tagFileDescriber>& vecFileDescriber);

    const int m_bAsync;
    IFileOpStatus* m_pParent = nullptr;
    CRefPtr<IFileOperation> m_pFileOp;
    tagQXFFileHeader m_FileHeader{};
    tagEntryFileHeader m_ConfFileHeader{};
    CDescriberTable<tagMRFDInfo> m_vecMRFD;
    CmUint32 m_dwEntriesRead = 0;  // by the walk, known or not

    // Filled by the first request for a length: one for each known entry of the index, which are
    // the first ones of m_vecMRFD.
    bool m_bLengths = false;
    std::vector<CmUint32> m_vecLengths;
};

/// Runs the walk on the R/W thread. Owns neither the handler nor the vector; both outlive it, as
/// their owner waits for it.
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

/// Runs the second walk, which finds the lengths, on the thread that reads the file. Doesn't own
/// the handler, which waits for it.
class CSyncReadLengths final : public ICmEvent {
 public:
    explicit CSyncReadLengths(CDownloadFileHandler& aDownload)
        : ICmEvent(0), m_download(aDownload) {}
    CmInt32 OnEventFire() override { return m_download.InitLengths(); }

 private:
    CDownloadFileHandler& m_download;
};
