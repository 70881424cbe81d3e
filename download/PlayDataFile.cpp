#include "download/PlayDataFile.h"

#include <algorithm>
#include <new>

#include "async/FileChain.h"
#include "async/FileThreadManager.h"
#include "download/IndexReader.h"
#include "platform/CmTrace.h"

namespace {

constexpr std::size_t c_nLeastRoom = 1024;

}  // namespace

/// The state of one walk along the index.
struct CDownloadFileHandler::tagWalk {
    CIndexReader aReader;
    std::vector<tagFileDescriber>& vecFileDescriber;
    CmUint32 dwLeft;                              // entries still to read
    std::uint64_t qwOffset = c_dwFileHeaderSize;  // of the next one
    CCircleWatch aWatch;
    bool bWatching;
    std::size_t nRoom = 0;  // for entries to keep
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
    CM_TRACE_INFO("CDownloadFileHandler::OpenDownloadedFile->Open downloaded file="
                  << strFilePath << " this=" << this);
    vecFileDescriber.clear();
    m_pFileOp = CFileChain::Build(FileChainKind::Download, m_bAsync, m_pParent);
    if (!m_pFileOp) {
        CM_TRACE_ERROR("CDownloadFileHandler::OpenDownloadedFile->Low memory to open file, file="
                       << strFilePath << " this=" << this);
        return CACHE_ERR_FAILED;
    }
    const CmInt32 lResult = m_pFileOp->Open(strFilePath, 0);
    if (lResult != CACHE_OK) {
        CM_TRACE_ERROR("CDownloadFileHandler::OpenDownloadedFile->Open file error, file="
                       << strFilePath << " ret=" << lResult << " this=" << this);
        return lResult;
    }
    return m_bAsync ? SendWalk(vecFileDescriber) : InitFileInfo(vecFileDescriber);
}

/// Has the walk run on the R/W thread, behind the open that was just queued, and waits for it.
CmInt32 CDownloadFileHandler::SendWalk(std::vector<tagFileDescriber>& vecFileDescriber) {
    std::unique_ptr<ICmEvent> pSyncReadEvent(new (std::nothrow)
                                                 CSyncReadQXFInfo(this, &vecFileDescriber));
    CM_CHECK(pSyncReadEvent, "pSyncReadEvent", CACHE_ERR_OUT_OF_MEMORY);
    ACmThread* const pThread = CFileThreadManager::Instance()->GetPrimaryNFSThread();
    const CRefPtr<ICmEventQueue> pQueue = pThread ? pThread->GetEventQueue() : nullptr;
    CM_CHECK(pQueue, "pQueue", CACHE_ERR_FAILED);
    return pQueue->SendEvent(pSyncReadEvent.release());
}

CmInt32 CDownloadFileHandler::InitFileInfo(std::vector<tagFileDescriber>& vecFileDescriber) {
    const CmInt32 lResult = ReadFileHeader();
    if (lResult != CACHE_OK) return lResult;
    tagWalk aWalk{CIndexReader(*m_pFileOp),
                  vecFileDescriber,
                  m_FileHeader.dwEntryCount,
                  c_dwFileHeaderSize,
                  {},
                  m_FileHeader.dwIndexType == Index_Chained};
    return WalkIndex(aWalk);
}

/// Makes room for eight times the entries there are, if the header counts so many: its word alone
/// is worth no memory. Without memory the entries find room one after another, or don't.
void CDownloadFileHandler::ReserveEntries(tagWalk& aWalk) try {
    const std::size_t nKnown = m_vecMRFD.Size();
    aWalk.nRoom = std::min(std::max(c_nLeastRoom, 8 * nKnown), nKnown + aWalk.dwLeft);
    aWalk.vecFileDescriber.reserve(aWalk.nRoom);
    m_vecMRFD.Reserve(aWalk.nRoom);
} catch (const std::bad_alloc&) {
}

CmInt32 CDownloadFileHandler::ReadFileHeader() {
    unsigned char aBytes[c_dwFileHeaderSize];
    CmUint32 dwLength = c_dwFileHeaderSize;
    const CmInt32 lResult = m_pFileOp->ReadData(aBytes, 0, dwLength);
    if (lResult != CACHE_OK) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->Read File header error="
                       << lResult << " this=" << this);
        return lResult;
    }
    if (dwLength != c_dwFileHeaderSize) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->Read File header error, HeadLen="
                       << dwLength << " this=" << this);
        return CACHE_ERR_BAD_CONTAINER;
    }
    if (BuildQXFFileHeader(aBytes, m_FileHeader) != CACHE_OK) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->BuildQXFFileHeader error"
                       << " this=" << this);
        return CACHE_ERR_FAILED;
    }
    if (IsContainerHeader(m_FileHeader)) return CACHE_OK;
    CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->Bad file type"
                   << " this=" << this);
    return CACHE_ERR_BAD_CONTAINER;
}

CmInt32 CDownloadFileHandler::WalkIndex(tagWalk& aWalk) {
    while (aWalk.dwLeft > 0) {
        if (aWalk.bWatching && aWalk.aWatch.IsBack(aWalk.qwOffset, m_vecMRFD.Size())) {
            aWalk.bWatching = false;
            const CmInt32 lResult = SkipLaps(aWalk);
            if (lResult != CACHE_OK || aWalk.dwLeft == 0) return lResult;
        }
        tagMRFDInfo aInfo;
        CmInt32 lResult = ReadEntry(aWalk, aInfo.aEntry);
        if (lResult == CACHE_OK) lResult = TakeEntry(aWalk, aInfo);
        if (lResult != CACHE_OK) return lResult;
        aWalk.qwOffset = NextEntryOffset(m_FileHeader.dwIndexType, aInfo.aEntry, aWalk.qwOffset);
        --aWalk.dwLeft;
    }
    return CACHE_OK;
}

/// The walk is in a circle. What the remaining whole laps would add is known without reading them
/// again: nothing, or the entries of the lap just walked, again and again up to the budget.
CmInt32 CDownloadFileHandler::SkipLaps(tagWalk& aWalk) {
    const std::size_t nBegin = aWalk.aWatch.GetKnownBefore();
    const std::size_t nEnd = m_vecMRFD.Size();
    if (nBegin == nEnd) {
        aWalk.dwLeft = 0;
        return CACHE_OK;
    }
    // The lap that reaches the budget is walked, so that it ends where single steps would end.
    for (; aWalk.dwLeft >= aWalk.aWatch.GetLapLength() &&
           m_vecMRFD.Size() + (nEnd - nBegin) <= c_dwMaxKnownEntries;
         aWalk.dwLeft -= aWalk.aWatch.GetLapLength()) {
        for (std::size_t nIndex = nBegin; nIndex < nEnd; ++nIndex) {
            const tagMRFDInfo aInfo = m_vecMRFD[nIndex];
            const CmInt32 lResult = AddKnown(aWalk, aInfo);
            if (lResult != CACHE_OK) return lResult;
        }
    }
    return CACHE_OK;
}

CmInt32 CDownloadFileHandler::ReadEntry(tagWalk& aWalk, tagMRFD& aEntry) {
    unsigned char aBytes[c_dwEntrySize];
    CmUint32 dwLength = 0;
    const CmInt32 lResult = aWalk.aReader.ReadEntry(aWalk.qwOffset, aBytes, dwLength);
    if (lResult != CACHE_OK) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->Read MRFD error=" << lResult
                                                                              << " this=" << this);
        return lResult;
    }
    if (dwLength != c_dwEntrySize) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->Read MRFD error, RetLen="
                       << dwLength << " this=" << this);
        return CACHE_ERR_BAD_CONTAINER;
    }
    if (BuildQXFEntry(aBytes, aEntry) != CACHE_OK) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->BuildQXFEntry error"
                       << " this=" << this);
        return CACHE_ERR_FAILED;
    }
    return CACHE_OK;
}

/// Has the entry in aInfo, and completes its describer.
CmInt32 CDownloadFileHandler::TakeEntry(tagWalk& aWalk, tagMRFDInfo& aInfo) {
    if (TagToFileDescriber(aInfo.aEntry, aInfo.aDescriber) != CACHE_OK) return CACHE_OK;
    const CmInt32 lResult = AddKnown(aWalk, aInfo);
    if (lResult != CACHE_OK || aInfo.aEntry.wTag != c_wConfTag) return lResult;
    return ReadConfHeader(aInfo.aEntry.dwDataOffset);
}

CmInt32 CDownloadFileHandler::AddKnown(tagWalk& aWalk, const tagMRFDInfo& aInfo) {
    if (m_vecMRFD.Size() >= c_dwMaxKnownEntries) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->Too many entries, count="
                       << m_FileHeader.dwEntryCount << " this=" << this);
        return CACHE_ERR_OUT_OF_MEMORY;
    }
    if (m_vecMRFD.Size() == aWalk.nRoom) ReserveEntries(aWalk);
    const std::size_t nBefore = aWalk.vecFileDescriber.size();
    try {
        aWalk.vecFileDescriber.push_back(aInfo.aDescriber);
        m_vecMRFD.Add(aInfo);
        return CACHE_OK;
    } catch (const std::bad_alloc&) {
        aWalk.vecFileDescriber.resize(nBefore);
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->Low memory to keep an entry"
                       << " this=" << this);
        return CACHE_ERR_OUT_OF_MEMORY;
    }
}

CmInt32 CDownloadFileHandler::ReadConfHeader(CmUint32 dwDataOffset) {
    unsigned char aBytes[c_dwEntryFileHeaderSize];
    CmUint32 dwLength = c_dwEntryFileHeaderSize;
    const CmInt32 lResult = m_pFileOp->ReadData(aBytes, dwDataOffset, dwLength);
    if (lResult != CACHE_OK) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->Read Conf fileheader error="
                       << lResult << " this=" << this);
        return lResult;
    }
    if (dwLength != c_dwEntryFileHeaderSize) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->Read Conf fileheader error,dwHeaderLen="
                       << dwLength << " this=" << this);
        return CACHE_ERR_BAD_CONTAINER;
    }
    if (BuildEntryFileHeader(aBytes, m_ConfFileHeader) != CACHE_OK) {
        CM_TRACE_ERROR("CDownloadFileHandler::InitFileInfo->BuildEntryFileHeader error"
                       << " this=" << this);
        return CACHE_ERR_FAILED;
    }
    return CACHE_OK;
}

CmInt32 CDownloadFileHandler::FindMRFD(const tagDataInfo& aDataInfo, tagMRFD& aEntry) const {
    const tagMRFDInfo* const pInfo = m_vecMRFD.Find(aDataInfo);
    if (!pInfo) return CACHE_ERR_NO_ENTRY;
    aEntry = pInfo->aEntry;
    return CACHE_OK;
}

CmInt32 CDownloadFileHandler::ReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                       CmUint32 dwOffset, CmUint32 dwLength) {
    CM_CHECK(lpBuffer, "lpBuffer", CACHE_ERR_INVALID_ARG);
    CM_CHECK(dwLength, "dwLength", CACHE_ERR_INVALID_ARG);
    CM_CHECK(m_pFileOp, "m_pFileOp.Get( )", CACHE_ERR_NOT_OPEN);
    tagMRFD aEntry;
    if (FindMRFD(aDataInfo, aEntry) != CACHE_OK) {
        CM_TRACE_ERROR("CDownloadFileHandler::ReadData->Cann't find MRFD for DataInfo FileID="
                       << aDataInfo.dwFileID << " DataType=" << aDataInfo.wDataType
                       << " FileType=" << aDataInfo.byFileType
                       << " DataSize=" << aDataInfo.dwDataLen << " this=" << this);
        return CACHE_ERR_INVALID_ARG;
    }
    const std::uint64_t qwOffset = std::uint64_t{dwOffset} + aEntry.dwDataOffset;
    const bool bToTheEnd = dwLength == CCacheFileManager::GetMaxDword();
    if (qwOffset > 0xFFFFFFFF || (!bToTheEnd && qwOffset + dwLength > m_FileHeader.dwFileSize)) {
        CM_TRACE_ERROR("CDownloadFileHandler::ReadData->Bad Arg dwOffset="
                       << qwOffset << " dwLength=" << dwLength
                       << " FileSize=" << m_FileHeader.dwFileSize << " this=" << this);
        return CACHE_ERR_INVALID_ARG;
    }
    const CmInt32 lResult =
        m_pFileOp->AsyncReadData(aDataInfo, lpBuffer, static_cast<CmUint32>(qwOffset), dwLength);
    if (lResult != CACHE_OK) {
        CM_TRACE_ERROR("CDownloadFileHandler::ReadData->read data error" << lResult
                                                                         << " this=" << this);
        return lResult;
    }
    // Nothing of this object is touched after the callback, which may have ended it.
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
