#include "download/PlayDataFile.h"

#include <algorithm>
#include <new>

#include "async/FileChain.h"
#include "async/FileThreadManager.h"
#include "download/IndexWalk.h"
#include "download/RecordReader.h"
#include "download/StreamLengths.h"
#include "platform/CmTraceLine.h"

namespace {

constexpr std::size_t c_nMinCapacity = 1024;  // entries; most indexes are shorter

constexpr tagRecordTexts c_aHeaderTexts = {
    "Read File header error=", "Read File header error, HeadLen=", "BuildQXFFileHeader error"};
constexpr tagRecordTexts c_aEntryTexts = {
    "Read MRFD error=", "Read MRFD error, RetLen=", "BuildQXFEntry error"};
constexpr tagRecordTexts c_aConfTexts = {
    "Read Conf fileheader error=", "Read Conf fileheader error,dwHeaderLen=",
    "BuildEntryFileHeader error"};

}  // namespace

/// Adds the entries that the walk finds to the handler's table and to the host's list.
class CDownloadFileHandler::CKeeper final : public IIndexVisitor {
 public:
    CKeeper(CDownloadFileHandler& aHandler, std::vector<tagFileDescriber>& vecFileDescriber)
        : m_handler(aHandler), m_vecFileDescriber(vecFileDescriber) {}

    CmInt32 OnEntry(const tagWalkEntry& aEntry) override;
    CmInt32 OnKnownAgain(std::size_t nIndex, CmUint32 dwLeft) override;

 private:
    CmInt32 Add(const tagMRFDInfo& aInfo, CmUint32 dwLeft);
    void Reserve(CmUint32 dwLeft);

    CDownloadFileHandler& m_handler;
    std::vector<tagFileDescriber>& m_vecFileDescriber;
    std::size_t m_nCapacity = 0;  // in entries
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
    const CmInt32 lResult = ReadFileHeader();
    return lResult == CACHE_OK ? WalkIndex(vecFileDescriber) : lResult;
}

CmInt32 CDownloadFileHandler::ReadFileHeader() {
    const CmInt32 lResult =
        ReportRecord(ReadRecord(*m_pFileOp, 0, m_FileHeader), c_aHeaderTexts, this);
    if (lResult != CACHE_OK || IsContainerHeader(m_FileHeader)) return lResult;
    TraceError("CDownloadFileHandler::InitFileInfo->Bad file type", " this=", this);
    return CACHE_ERR_BAD_CONTAINER;
}

CmInt32 CDownloadFileHandler::WalkIndex(std::vector<tagFileDescriber>& vecFileDescriber) {
    CKeeper aKeeper(*this, vecFileDescriber);
    CIndexWalk aWalk(*m_pFileOp, m_FileHeader, aKeeper, CIndexWalk::Circles_Follow);
    const CIndexWalk::End aEnd = aWalk.Run();
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

CmInt32 CDownloadFileHandler::CKeeper::OnEntry(const tagWalkEntry& aEntry) {
    if (!aEntry.bKnown) return CACHE_OK;
    const CmInt32 lResult = Add(aEntry.aInfo, aEntry.dwLeft);
    const tagMRFD& aFound = aEntry.aInfo.aEntry;
    if (lResult != CACHE_OK || aFound.wTag != c_wConfTag) return lResult;
    return m_handler.ReadConfHeader(aFound.dwDataOffset);
}

CmInt32 CDownloadFileHandler::CKeeper::OnKnownAgain(std::size_t nIndex, CmUint32 dwLeft) {
    const tagMRFDInfo aInfo = m_handler.m_vecMRFD[nIndex];
    return Add(aInfo, dwLeft);
}

CmInt32 CDownloadFileHandler::CKeeper::Add(const tagMRFDInfo& aInfo, CmUint32 dwLeft) {
    if (m_handler.m_vecMRFD.Size() == m_nCapacity) Reserve(dwLeft);
    const std::size_t nBefore = m_vecFileDescriber.size();
    try {
        m_vecFileDescriber.push_back(aInfo.aDescriber);
        m_handler.m_vecMRFD.Add(aInfo);
        return CACHE_OK;
    } catch (const std::bad_alloc&) {
        m_vecFileDescriber.resize(nBefore);
        TraceError("CDownloadFileHandler::InitFileInfo->Low memory to keep an entry",
                   " this=", &m_handler);
        return CACHE_ERR_OUT_OF_MEMORY;
    }
}

/// Takes memory for eight times the entries that were found, if the header counts so many. The
/// header's count alone is not trusted for an allocation. If there is not that much memory, each
/// entry takes its own or fails.
void CDownloadFileHandler::CKeeper::Reserve(CmUint32 dwLeft) try {
    const std::size_t nKnown = m_handler.m_vecMRFD.Size();
    m_nCapacity = std::min<std::size_t>(std::max(c_nMinCapacity, 8 * nKnown), nKnown + dwLeft);
    m_vecFileDescriber.reserve(m_nCapacity);
    m_handler.m_vecMRFD.Reserve(m_nCapacity);
} catch (const std::bad_alloc&) {
}

CmInt32 CDownloadFileHandler::ReadConfHeader(CmUint32 dwDataOffset) {
    return ReportRecord(ReadRecord(*m_pFileOp, dwDataOffset, m_ConfFileHeader), c_aConfTexts, this);
}

CmInt32 CDownloadFileHandler::FindMRFD(const tagDataInfo& aDataInfo, tagMRFD& aEntry) const {
    const tagMRFDInfo* const pInfo = m_vecMRFD.Find(aDataInfo);
    if (!pInfo) return CACHE_ERR_NO_ENTRY;
    aEntry = pInfo->aEntry;
    return CACHE_OK;
}

/// In asynchronous mode the host's thread waits here until the index was read.
CmInt32 CDownloadFileHandler::GetStreamLength(const tagDataInfo& aDataInfo, CmUint32& dwLength) {
    CM_CHECK(m_pFileOp, "m_pFileOp.Get( )", CACHE_ERR_NOT_OPEN);
    const tagMRFDInfo* const pInfo = m_vecMRFD.Find(aDataInfo);
    if (!pInfo) {
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
    const auto nIndex = static_cast<std::size_t>(pInfo - &m_vecMRFD[0]);
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
