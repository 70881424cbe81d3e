#include "core/PendingBytes.h"
#include "download/ContainerFormat.h"
#include "download/PlayDataFile.h"
#include "fileop/FileOperation.h"
#include "platform/CmTraceLine.h"
#include "player/RecordFiles.h"

/// The data operations of the play handler: how a request finds its file, and what travels.

namespace {

constexpr std::uint16_t c_wTypeWithoutHeader =
    5;  // its files don't begin with an entry file header

}  // namespace

CmInt32 CPlayFileHandler::DataInfo2FileHandler(const tagDataInfo& aDataInfo,
                                               IFileOperation*& pFile) const {
    const auto* const pRecordFile =
        m_pRecordFiles ? m_pRecordFiles->aTable.Find(aDataInfo) : nullptr;
    if (!pRecordFile) return CACHE_ERR_NO_ENTRY;
    pFile = pRecordFile->pFile.Get();
    return CACHE_OK;
}

/// The file for a request of an operation, or the code with which it refuses: traced.
CmInt32 CPlayFileHandler::FindFile(const char* lpOperation, const char* lpLengthLabel,
                                   const tagDataInfo& aDataInfo, IFileOperation*& pFile) const {
    pFile = nullptr;
    if (DataInfo2FileHandler(aDataInfo, pFile) != CACHE_OK) {
        TraceError("CPlayFileHandler::", lpOperation, "->DataInfo2FileHandler error",
                   " FileID=", aDataInfo.dwFileID, " DataType=", aDataInfo.wDataType,
                   " FileType=", aDataInfo.byFileType, lpLengthLabel, aDataInfo.dwDataLen,
                   " this=", this);
        return CACHE_ERR_INVALID_STATE;
    }
    CM_CHECK(pFile, "pFile", CACHE_ERR_INVALID_STATE);
    return CACHE_OK;
}

CmInt32 CPlayFileHandler::WriteData(const tagDataInfo& aDataInfo, const unsigned char* lpData,
                                    CmUint32 dwLength, CmUint32 dwOffset) {
    CM_CHECK(!m_pDownloadFile, "!m_pDownloadFile", CACHE_ERR_INVALID_STATE);
    IFileOperation* pFile = nullptr;
    CmInt32 lResult = FindFile("WriteData", " DataLen=", aDataInfo, pFile);
    if (lResult != CACHE_OK) return lResult;
    CM_CHECK(lpData || dwLength == 0, "lpData", CACHE_ERR_INVALID_ARG);
    lResult = CPendingBytes::CheckRoom(pFile->BytesToQueue(dwLength, dwOffset));
    if (lResult != CACHE_OK) return lResult;
    CaptureHeader(aDataInfo, lpData, dwLength, dwOffset);
    const char* const lpBytes = lpData ? reinterpret_cast<const char*>(lpData) : "";
    return pFile->WriteBytes(lpBytes, dwLength, dwOffset);
}

/// Takes time stamp and version from a block that begins a file. A block too short to hold them
/// leaves the next one its chance.
void CPlayFileHandler::CaptureHeader(const tagDataInfo& aDataInfo, const unsigned char* lpData,
                                     CmUint32 dwLength, CmUint32 dwOffset) {
    if (m_dwCBTimeStamp != 0 || dwOffset != 0 || aDataInfo.wDataType == c_wTypeWithoutHeader ||
        dwLength < c_dwEntryFileHeaderSize)
        return;
    tagEntryFileHeader aHeader{};
    if (BuildEntryFileHeader(lpData, aHeader) != CACHE_OK)
        TraceError("CPlayFileHandler::WriteData->Get file header info error", " this=", this);
    m_dwCBTimeStamp = aHeader.dwCBTimeStamp;
    m_dwFileVersion = aHeader.dwFileVersion;
}

CmInt32 CPlayFileHandler::ReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                   CmUint32 dwOffset, CmUint32 dwLength) {
    // The callback of a synchronous read may destroy the handler. Nothing of it is touched after
    // the callback, but the caller of this call still stands on it.
    const CRefPtr<CPlayFileHandler> pSelf(this);
    if (m_pDownloadFile) return m_pDownloadFile->ReadData(aDataInfo, lpBuffer, dwOffset, dwLength);
    IFileOperation* pFile = nullptr;
    CmInt32 lResult = FindFile("ReadData", " DataSize=", aDataInfo, pFile);
    if (lResult != CACHE_OK) return lResult;
    lResult = pFile->AsyncReadData(aDataInfo, lpBuffer, dwOffset, dwLength);
    if (lResult != CACHE_OK) {
        TraceError("CPlayFileHandler::ReadData->Read data error", lResult, " this=", this);
        return lResult;
    }
    if (!m_bAsync) OnDataReady(lpBuffer, dwLength, aDataInfo);
    return CACHE_OK;
}

CmInt32 CPlayFileHandler::GetStreamLength(const tagDataInfo& aDataInfo, CmUint32& dwLength) {
    CM_CHECK(m_pDownloadFile, "m_pDownloadFile", CACHE_ERR_INVALID_STATE);
    return m_pDownloadFile->GetStreamLength(aDataInfo, dwLength);
}

CmInt32 CPlayFileHandler::SyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                       CmUint32 dwOffset, CmUint32& dwLength) {
    if (m_pDownloadFile) return CACHE_ERR_INVALID_STATE;
    IFileOperation* pFile = nullptr;
    CmInt32 lResult = FindFile("SyncReadData", " DataSize=", aDataInfo, pFile);
    if (lResult != CACHE_OK) return lResult;
    lResult = pFile->ReadData(lpBuffer, dwOffset, dwLength);
    if (lResult != CACHE_OK)
        TraceError("CPlayFileHandler::SyncReadData->Read data error", lResult, " this=", this);
    return lResult;
}

void CPlayFileHandler::OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                                   const tagDataInfo& aDataInfo) {
    if (m_pSink)
        m_pSink->OnDataReady(lpData, dwLength, aDataInfo);
    else
        delete[] lpData;
}
