#include "download/PlayDataFile.h"

#include <algorithm>
#include <new>

#include "async/FileChain.h"
#include "async/FileThreadManager.h"
#include "download/EntryBytes.h"
#include "download/IndexWalk.h"
#include "download/RecordReader.h"
#include "download/StreamLengths.h"
#include "platform/CmTraceLine.h"

using cachefile_internal::DescriberOf;
using cachefile_internal::DescriberOfEntry;
using cachefile_internal::EntryDataOffset;
using cachefile_internal::EntryExtraInfo;
using cachefile_internal::EntryID;

namespace {

/// Memory for this many entries is taken without asking for the size of the file.
constexpr CmUint32 c_dwFewEntries = 1024;

constexpr tagRecordTexts c_aHeaderTexts = {
    "Read File header error=", "Read File header error, HeadLen=", "BuildQXFFileHeader error"};
constexpr tagRecordTexts c_aEntryTexts = {
    "Read MRFD error=", "Read MRFD error, RetLen=", "BuildQXFEntry error"};
constexpr tagRecordTexts c_aConfTexts = {
    "Read Conf fileheader error=", "Read Conf fileheader error,dwHeaderLen=",
    "BuildEntryFileHeader error"};

}  // namespace

/// Adds the entries that the walk finds to the handler's index and to the host's list.
class CDownloadFileHandler::CKeeper {
 public:
    static constexpr bool c_bFollowsCircles = true;

    CKeeper(CDownloadFileHandler& aHandler, std::vector<tagFileDescriber>& vecFileDescriber)
        : m_handler(aHandler), m_vecFileDescriber(vecFileDescriber) {}

    /// Takes memory for the entries that the header counts, but not for more than the file can
    /// hold: the header alone is not trusted for an allocation. Without that much memory, the lists
    /// grow with their entries.
    void Reserve();

    /// In the class, so that it is compiled into the walk.
    CmInt32 OnEntry(const tagWalkEntry& aEntry) {
        if (!aEntry.pKnown) return CACHE_OK;
        bool bListed = false;
        try {
            m_vecFileDescriber.push_back(DescriberOf(*aEntry.pKnown, EntryID(aEntry.lpBytes),
                                                     EntryExtraInfo(aEntry.lpBytes)));
            bListed = true;
            m_handler.m_vecMRFD.Add(aEntry.lpBytes);
        } catch (const std::bad_alloc&) {
            if (bListed) m_vecFileDescriber.pop_back();
            return LowMemory();
        }
        if (aEntry.pKnown->wTag != c_wConfTag) return CACHE_OK;
        return m_handler.ReadConfHeader(EntryDataOffset(aEntry.lpBytes));
    }

    /// Only the host's list repeats the entry, because a lookup finds the first one.
    CmInt32 OnKnownAgain(std::size_t nIndex) try {
        m_vecFileDescriber.push_back(DescriberOfEntry(m_handler.m_vecMRFD[nIndex]));
        return CACHE_OK;
    } catch (const std::bad_alloc&) {
        return LowMemory();
    }

 private:
    CmInt32 LowMemory() const;

    CDownloadFileHandler& m_handler;
    std::vector<tagFileDescriber>& m_vecFileDescriber;
};

CDownloadFileHandler::CDownloadFileHandler(int bAsync) : m_bAsync(bAsync) {}

CDownloadFileHandler::~CDownloadFileHandler() {
    if (m_pParent) Destroy();
}

CmInt32 CDownloadFileHandler::Initialize(IFileOpStatus* pParent) {
    CM_CHECK(pParent, "pParent", CACHE_ERR_INVALID_ARG);
    m_pParent = pParent;
    m_FileHeader = {};
    m_ConfFileHeader = {};
    return CACHE_OK;
}

CmInt32 CDownloadFileHandler::OpenDownloadedFile(const CCmString& strFilePath,
                                                 std::vector<tagFileDescriber>& vecFileDescriber) {
    TraceInfo("CDownloadFileHandler::OpenDownloadedFile->Open downloaded file=", strFilePath,
              " this=", this);
    vecFileDescriber.clear();
    m_pFileOp = CFileChain::Build(FileChainKind::Download, 0, m_bAsync, m_pParent);
    if (!m_pFileOp) {
        TraceError("CDownloadFileHandler::OpenDownloadedFile->Low memory to open file, file=",
                   strFilePath, " this=", this);
        return CACHE_ERR_FAILED;
    }
    const CmInt32 lResult = m_pFileOp->Open(strFilePath, 0);
    if (lResult != CACHE_OK) {
        TraceError("CDownloadFileHandler::OpenDownloadedFile->Open file error, file=", strFilePath,
                   " ret=", lResult, " this=", this);
        return lResult;
    }
    return m_bAsync ? SendWalk(vecFileDescriber) : InitFileInfo(vecFileDescriber);
}

/// Reads the index on the R/W thread, after the open that was just queued, and waits for it.
CmInt32 CDownloadFileHandler::SendWalk(std::vector<tagFileDescriber>& vecFileDescriber) {
    std::unique_ptr<ICmEvent> pSyncReadEvent(new (std::nothrow)
                                                 CSyncReadQXFInfo(this, &vecFileDescriber));
    CM_CHECK(pSyncReadEvent, "pSyncReadEvent", CACHE_ERR_OUT_OF_MEMORY);
    const CRefPtr<ACmThread> pThread = CFileThreadManager::Instance()->GetPrimaryNFSThread();
    const CRefPtr<ICmEventQueue> pQueue = pThread ? pThread->GetEventQueue() : nullptr;
    CM_CHECK(pQueue, "pQueue", CACHE_ERR_FAILED);
    return pQueue->SendEvent(pSyncReadEvent.release());
}

CmInt32 CDownloadFileHandler::InitFileInfo(std::vector<tagFileDescriber>& vecFileDescriber) {
    CIndexReader aReader(*m_pFileOp);
    const CmInt32 lResult = ReadFileHeader(aReader);
    return lResult == CACHE_OK ? WalkIndex(aReader, vecFileDescriber) : lResult;
}

CmInt32 CDownloadFileHandler::ReadFileHeader(CIndexReader& aReader) {
    const CmInt32 lResult =
        ReportRecord(aReader.ReadFileHeader(m_FileHeader), c_aHeaderTexts, this);
    if (lResult != CACHE_OK || IsContainerHeader(m_FileHeader)) return lResult;
    TraceError("CDownloadFileHandler::InitFileInfo->Bad file type", " this=", this);
    return CACHE_ERR_BAD_CONTAINER;
}

CmInt32 CDownloadFileHandler::WalkIndex(CIndexReader& aReader,
                                        std::vector<tagFileDescriber>& vecFileDescriber) {
    CKeeper aKeeper(*this, vecFileDescriber);
    aKeeper.Reserve();
    CIndexWalk aWalk(aReader, m_FileHeader);
    const CIndexWalk::End aEnd = aWalk.Run(aKeeper);
    m_dwEntriesRead = aWalk.GetEntriesRead();
    switch (aEnd) {
        case CIndexWalk::End_Unreadable:
            return ReportRecord(aWalk.GetRead(), c_aEntryTexts, this);
        case CIndexWalk::End_TooMany:
            TraceError("CDownloadFileHandler::InitFileInfo->Too many entries, count=",
                       m_FileHeader.dwEntryCount, " this=", this);
            return CACHE_ERR_OUT_OF_MEMORY;
        default:  // the visitor has traced its failure
            return aWalk.GetResult();
    }
}

void CDownloadFileHandler::CKeeper::Reserve() try {
    std::uint64_t qwEntries =
        std::min<std::uint64_t>(m_handler.m_FileHeader.dwEntryCount, c_dwMaxKnownEntries);
    std::uint64_t qwFileSize = 0;
    if (qwEntries > c_dwFewEntries) {
        if (m_handler.m_pFileOp->GetSize(qwFileSize) != CACHE_OK) return;
        qwEntries = std::min(qwEntries, qwFileSize / c_dwEntrySize);
    }
    m_vecFileDescriber.reserve(static_cast<std::size_t>(qwEntries));
    m_handler.m_vecMRFD.Reserve(static_cast<std::size_t>(qwEntries));
} catch (const std::bad_alloc&) {
}

CmInt32 CDownloadFileHandler::CKeeper::LowMemory() const {
    TraceError("CDownloadFileHandler::InitFileInfo->Low memory to keep an entry",
               " this=", &m_handler);
    return CACHE_ERR_OUT_OF_MEMORY;
}

CmInt32 CDownloadFileHandler::ReadConfHeader(CmUint32 dwDataOffset) {
    return ReportRecord(ReadRecord(*m_pFileOp, dwDataOffset, m_ConfFileHeader), c_aConfTexts, this);
}

CmInt32 CDownloadFileHandler::FindMRFD(const tagDataInfo& aDataInfo, tagMRFD& aEntry) const {
    const std::size_t nFound = m_vecMRFD.Find(aDataInfo);
    return nFound < m_vecMRFD.Size() ? BuildQXFEntry(m_vecMRFD[nFound], aEntry)
                                     : CmInt32{CACHE_ERR_NO_ENTRY};
}

/// In asynchronous mode the host's thread waits here until the index was read.
CmInt32 CDownloadFileHandler::GetStreamLength(const tagDataInfo& aDataInfo, CmUint32& dwLength) {
    CM_CHECK(m_pFileOp, "m_pFileOp.Get( )", CACHE_ERR_NOT_OPEN);
    const std::size_t nIndex = m_vecMRFD.Find(aDataInfo);
    if (nIndex == m_vecMRFD.Size()) {
        TraceError(
            "CDownloadFileHandler::GetStreamLength->No such stream FileID=", aDataInfo.dwFileID,
            " DataType=", aDataInfo.wDataType, " FileType=", aDataInfo.byFileType, " this=", this);
        return CACHE_ERR_INVALID_ARG;
    }
    if (!m_bLengths) {
        ICmEvent* const pEvent = new (std::nothrow) CSyncReadLengths(*this);
        CM_CHECK(pEvent, "pEvent", CACHE_ERR_OUT_OF_MEMORY);
        const CmInt32 lResult = m_pFileOp->SendToReader(pEvent);
        if (lResult != CACHE_OK) return lResult;
    }
    CM_CHECK(nIndex < m_vecLengths.size(), "nIndex < m_vecLengths.size( )", CACHE_ERR_FAILED);
    dwLength = m_vecLengths[nIndex];
    return CACHE_OK;
}

CmInt32 CDownloadFileHandler::InitLengths() {
    const CmInt32 lResult =
        ReadStreamLengths(*m_pFileOp, m_FileHeader, m_dwEntriesRead, m_vecLengths);
    m_bLengths = lResult == CACHE_OK;
    if (!m_bLengths)
        TraceError("CDownloadFileHandler::InitLengths->Read index error=", lResult, " this=", this);
    return lResult;
}

CmInt32 CDownloadFileHandler::ReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                       CmUint32 dwOffset, CmUint32 dwLength) {
    CM_CHECK(lpBuffer, "lpBuffer", CACHE_ERR_INVALID_ARG);
    CM_CHECK(dwLength, "dwLength", CACHE_ERR_INVALID_ARG);
    CM_CHECK(m_pFileOp, "m_pFileOp.Get( )", CACHE_ERR_NOT_OPEN);
    tagMRFD aEntry;
    if (FindMRFD(aDataInfo, aEntry) != CACHE_OK) {
        TraceError("CDownloadFileHandler::ReadData->Cann't find MRFD for DataInfo FileID=",
                   aDataInfo.dwFileID, " DataType=", aDataInfo.wDataType,
                   " FileType=", aDataInfo.byFileType, " DataSize=", aDataInfo.dwDataLen,
                   " this=", this);
        return CACHE_ERR_INVALID_ARG;
    }
    const std::uint64_t qwOffset = std::uint64_t{dwOffset} + aEntry.dwDataOffset;
    const bool bToTheEnd = dwLength == CCacheFileManager::GetMaxDword();
    if (qwOffset > 0xFFFFFFFF || (!bToTheEnd && qwOffset + dwLength > m_FileHeader.dwFileSize)) {
        TraceError("CDownloadFileHandler::ReadData->Bad Arg dwOffset=", qwOffset,
                   " dwLength=", dwLength, " FileSize=", m_FileHeader.dwFileSize, " this=", this);
        return CACHE_ERR_INVALID_ARG;
    }
    const CmInt32 lResult =
        m_pFileOp->AsyncReadData(aDataInfo, lpBuffer, static_cast<CmUint32>(qwOffset), dwLength);
    if (lResult != CACHE_OK) {
        TraceError("CDownloadFileHandler::ReadData->read data error", lResult, " this=", this);
        return lResult;
    }
    // The callback may delete this object, so nothing of it is used afterwards.
    if (!m_bAsync && m_pParent) m_pParent->OnDataReady(lpBuffer, dwLength, aDataInfo);
    return CACHE_OK;
}

CmInt32 CDownloadFileHandler::CloseFile() {
    if (!m_pFileOp) return CACHE_OK;
    const CmInt32 lResult = m_pFileOp->Close();
    m_pFileOp = nullptr;
    return lResult;
}

CmInt32 CDownloadFileHandler::Destroy() {
    CloseFile();
    m_pParent = nullptr;
    m_vecMRFD.Clear();
    if (m_bAsync) {
        CFileThreadManager* const pThreads = CFileThreadManager::Instance();
        pThreads->StopThread(pThreads->GetPrimaryNFSThread());
    }
    return CACHE_OK;
}

CSyncReadQXFInfo::CSyncReadQXFInfo(CDownloadFileHandler* pDownload,
                                   std::vector<tagFileDescriber>* pvecFileDescriber)
    : ICmEvent(0), m_pDownload(pDownload), m_pvecFileDescriber(pvecFileDescriber) {
    if (!pDownload) CM_ASSERTION("pDownload");
}

CSyncReadQXFInfo::~CSyncReadQXFInfo() { m_pDownload = nullptr; }

CmInt32 CSyncReadQXFInfo::OnEventFire() {
    CM_CHECK(m_pDownload, "m_pDownload", CACHE_ERR_FAILED);
    return m_pDownload->InitFileInfo(*m_pvecFileDescriber);
}
