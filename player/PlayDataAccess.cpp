#include "core/PendingBytes.h"
#include "download/ContainerFormat.h"
#include "download/PlayDataFile.h"
#include "fileop/FileLedger.h"
#include "fileop/FileOperation.h"
#include "fileop/GatherAge.h"
#include "platform/CmTraceLine.h"
#include "player/PlayFileHandler.h"
#include "player/PlayedFiles.h"

/// The data operations of the play handler: reads and writes of record files and of a container.

namespace {

/// The files of this type do not begin with an entry file header.
constexpr std::uint16_t c_wTypeWithoutHeader = 5;

/// Traces that no open file matches the request of an operation. Returns the operation's code.
CmInt32 NoFile(const char* lpOperation, const char* lpLengthLabel, const tagDataInfo& aDataInfo,
               const CPlayFileHandler* pHandler) {
    TraceError("CPlayFileHandler::", lpOperation, "->DataInfo2FileHandler error",
               " FileID=", aDataInfo.dwFileID, " DataType=", aDataInfo.wDataType,
               " FileType=", aDataInfo.byFileType, lpLengthLabel, aDataInfo.dwDataLen,
               " this=", pHandler);
    return CACHE_ERR_INVALID_STATE;
}

/// Whether a block begins with a complete entry file header. If it is shorter, the next block at
/// offset 0 is examined instead.
bool HoldsHeader(const tagDataInfo& aDataInfo, CmUint32 dwLength, CmUint32 dwOffset) {
    return dwOffset == 0 && aDataInfo.wDataType != c_wTypeWithoutHeader &&
           dwLength >= c_dwEntryFileHeaderSize;
}

/// Returns the header at the start of lpData. If it cannot be read, traces this and returns zeros.
tagEntryFileHeader ReadHeader(const unsigned char* lpData, const CPlayFileHandler* pHandler) {
    tagEntryFileHeader aHeader{};
    if (BuildEntryFileHeader(lpData, aHeader) != CACHE_OK)
        TraceError("CPlayFileHandler::WriteData->Get file header info error", " this=", pHandler);
    return aHeader;
}

}  // namespace

CmInt32 CPlayFileHandler::DataInfo2FileHandler(const tagDataInfo& aDataInfo,
                                               IFileOperation*& pFile) const {
    const auto* const pRecordFile =
        m_pRecordFiles ? m_pRecordFiles->aTable.Find(aDataInfo) : nullptr;
    if (!pRecordFile) return CACHE_ERR_NO_ENTRY;
    pFile = pRecordFile->pFile.Get();
    return CACHE_OK;
}

CmInt32 CPlayFileHandler::WriteData(const tagDataInfo& aDataInfo, const unsigned char* lpData,
                                    CmUint32 dwLength, CmUint32 dwOffset) {
    const CAgedFlush aAgedFlush;
    CM_CHECK(!m_pDownloadFile, "!m_pDownloadFile", CACHE_ERR_INVALID_STATE);
    IFileOperation* pFile = nullptr;
    if (DataInfo2FileHandler(aDataInfo, pFile) != CACHE_OK)
        return NoFile("WriteData", " DataLen=", aDataInfo, this);
    CM_CHECK(pFile, "pFile", CACHE_ERR_INVALID_STATE);
    CM_CHECK(lpData || dwLength == 0, "lpData", CACHE_ERR_INVALID_ARG);
    CmInt32 lResult = CFileLedger::TakeSyncFailureOf(*pFile);
    if (lResult == CACHE_OK)
        lResult = CPendingBytes::CheckRoom(pFile->BytesToQueue(dwLength, dwOffset), nullptr);
    if (lResult != CACHE_OK) return lResult;
    if (m_dwCBTimeStamp == 0 && HoldsHeader(aDataInfo, dwLength, dwOffset)) {
        const tagEntryFileHeader aHeader = ReadHeader(lpData, this);
        m_dwCBTimeStamp = aHeader.dwCBTimeStamp;
        m_dwFileVersion = aHeader.dwFileVersion;
    }
    // The links copy from the pointer, which must not be null even if there are no bytes.
    const char* const lpBytes = lpData ? reinterpret_cast<const char*>(lpData) : "";
    return pFile->WriteBytes(lpBytes, dwLength, dwOffset);
}

CmInt32 CPlayFileHandler::ReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                   CmUint32 dwOffset, CmUint32 dwLength) {
    const CAgedFlush aAgedFlush;
    // The callback of a synchronous read may destroy the handler. No member is used after the
    // callback, but the handler has to exist until this call returns.
    const CRefPtr<CPlayFileHandler> pSelf(this);
    if (m_pDownloadFile) return m_pDownloadFile->ReadData(aDataInfo, lpBuffer, dwOffset, dwLength);
    IFileOperation* pFile = nullptr;
    if (DataInfo2FileHandler(aDataInfo, pFile) != CACHE_OK)
        return NoFile("ReadData", " DataSize=", aDataInfo, this);
    CM_CHECK(pFile, "pFile", CACHE_ERR_INVALID_STATE);
    const CmInt32 lResult = pFile->AsyncReadData(aDataInfo, lpBuffer, dwOffset, dwLength);
    if (lResult != CACHE_OK) {
        TraceError("CPlayFileHandler::ReadData->Read data error", lResult, " this=", this);
        return lResult;
    }
    if (!m_bAsync) OnDataReady(lpBuffer, dwLength, aDataInfo);
    return CACHE_OK;
}

CmInt32 CPlayFileHandler::GetStreamLength(const tagDataInfo& aDataInfo, CmUint32& dwLength) {
    const CAgedFlush aAgedFlush;
    CM_CHECK(m_pDownloadFile, "m_pDownloadFile", CACHE_ERR_INVALID_STATE);
    return m_pDownloadFile->GetStreamLength(aDataInfo, dwLength);
}

CmInt32 CPlayFileHandler::SyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                       CmUint32 dwOffset, CmUint32& dwLength) {
    const CAgedFlush aAgedFlush;
    if (m_pDownloadFile) return CACHE_ERR_INVALID_STATE;
    IFileOperation* pFile = nullptr;
    if (DataInfo2FileHandler(aDataInfo, pFile) != CACHE_OK)
        return NoFile("SyncReadData", " DataSize=", aDataInfo, this);
    CM_CHECK(pFile, "pFile", CACHE_ERR_INVALID_STATE);
    const CmInt32 lResult = pFile->ReadData(lpBuffer, dwOffset, dwLength);
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
