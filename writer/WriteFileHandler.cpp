#include "writer/WriteFileHandler.h"

#include <atomic>
#include <new>

#include "async/FileChain.h"
#include "core/HomeDir.h"
#include "core/PendingBytes.h"
#include "platform/CmTraceLine.h"
#include "writer/OpenFiles.h"

namespace {

/// The number of the last file that any handler of the process has opened.
std::atomic<std::uint64_t> s_qwLastNumber{0};

COpenFiles FilesOf(std::vector<tagOpenFile>& vecFiles) { return {vecFiles, s_qwLastNumber}; }

CmInt32 NoMemoryToOpen(const CWriteFileHandler* pHandler) {
    TraceError("CWriteFileHandler::OpenWritingFile->Low memory to create a file",
               " this=", pHandler);
    return CACHE_ERR_OUT_OF_MEMORY;
}

}  // namespace

CWriteFileHandler* CCacheFileManager::CreateWriteFileHandler(CmUint32 dwRecordID, int bAsync) {
    TraceInfo("CCacheFileManager::CreateWriteFileHandler->dwRecordID=", dwRecordID,
              " bAsync=", bAsync);
    CWriteFileHandler* const pHandler = new (std::nothrow) CWriteFileHandler(dwRecordID, bAsync);
    if (!pHandler) {
        TraceError("Low memory to create a CWriteFileHandler object");
        return nullptr;
    }
    pHandler->AddReference();
    return pHandler;
}

CWriteFileHandler::CWriteFileHandler(CmUint32 dwRecordID, int bAsync)
    : m_dwRecordID(dwRecordID), m_bAsync(bAsync) {}

CWriteFileHandler::CWriteFileHandler(const CWriteFileHandler&) = default;
CWriteFileHandler& CWriteFileHandler::operator=(const CWriteFileHandler&) = default;
CWriteFileHandler::~CWriteFileHandler() = default;

CmInt32 CWriteFileHandler::Initialize(IFileOpSink* pSink) {
    m_lStatus = CACHE_OK;
    m_pSink = pSink;
    m_LinkType = CCacheFileManager::Link_Local;
    m_OpType = CCacheFileManager::Op_Open;
    return CHomeDir(m_strHomeDir, "CWriteFileHandler::Initialize", this).AppendRecord(m_dwRecordID);
}

void CWriteFileHandler::SetHomeDir(const CCmString& strHomeDir) {
    CHomeDir(m_strHomeDir, "CWriteFileHandler::SetHomeDir", this).Set(strHomeDir);
}

CCmString& CWriteFileHandler::GetTempHomeDir() { return m_strHomeDir; }

CmInt32 CWriteFileHandler::OpenWritingFile(const CCmString& strFileName, CmUint32& dwHandle) try {
    dwHandle = 0;
    const CCmString strPath = m_strHomeDir + strFileName;
    const CRefPtr<IFileOperation> pFile =
        CFileChain::Build(FileChainKind::WriteRecord, m_bAsync, this);
    if (!pFile) return NoMemoryToOpen(this);
    // The list takes the file first: nothing may fail after the file has been opened.
    const CmUint32 dwNew = FilesOf(m_vecWriteFiles).Add(pFile);
    const CmInt32 lResult = pFile->Open(strPath, 1);
    if (lResult != CACHE_OK) {
        RemoveHandle(dwNew);
        TraceError("CWriteFileHandler::OpenWritingFile->Open file error=", lResult, " this=", this);
        return lResult;
    }
    dwHandle = dwNew;
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return NoMemoryToOpen(this);
}

CmInt32 CWriteFileHandler::Handle2Pointer(CmUint32 dwHandle, IFileOperation*& pFile) {
    pFile = FilesOf(m_vecWriteFiles).Find(dwHandle);
    return pFile ? CACHE_OK : CACHE_ERR_NO_ENTRY;
}

CmInt32 CWriteFileHandler::RemoveHandle(CmUint32 dwHandle) {
    return FilesOf(m_vecWriteFiles).Remove(dwHandle) ? CACHE_OK : CACHE_ERR_NO_ENTRY;
}

CmInt32 CWriteFileHandler::WriteData(CmUint32 dwHandle, const unsigned char* lpData,
                                     CmUint32 dwLength, CmUint32 dwOffset) {
    CM_CHECK(lpData, "lpData", CACHE_ERR_INVALID_ARG);
    IFileOperation* pFile = nullptr;
    if (Handle2Pointer(dwHandle, pFile) != CACHE_OK) {
        TraceError("CWriteFileHandler::WriteData->Bad file handle", dwHandle, " this=", this);
        return CACHE_ERR_INVALID_STATE;
    }
    // Asked before anything is taken, so that the host can repeat the same call.
    CmInt32 lResult = CPendingBytes::CheckRoom(pFile->BytesToQueue(dwLength, dwOffset));
    if (lResult != CACHE_OK) return lResult;
    lResult = pFile->WriteBytes(reinterpret_cast<const char*>(lpData), dwLength, dwOffset);
    if (lResult != CACHE_OK)
        TraceError("CWriteFileHandler::WriteData->Write Data error=", lResult, " this=", this);
    return lResult;
}

void CWriteFileHandler::FlushData(CmUint32 dwHandle) {
    IFileOperation* pFile = nullptr;
    if (Handle2Pointer(dwHandle, pFile) == CACHE_OK)
        pFile->Flush();
    else
        TraceError("CWriteFileHandler::FlushData->Bad file handle=", dwHandle, " this=", this);
}

CmInt32 CWriteFileHandler::CloseFile(CmUint32 dwHandle) {
    IFileOperation* pFile = nullptr;
    if (Handle2Pointer(dwHandle, pFile) != CACHE_OK) {
        TraceError("CWriteFileHandler::CloseFile->Bad file handle=", dwHandle, " this=", this);
        return CACHE_ERR_INVALID_STATE;
    }
    const CmInt32 lResult = pFile->Close();
    if (lResult != CACHE_OK) {
        TraceError("CWriteFileHandler::CloseFile->Close file error=", lResult, " this=", this);
        return lResult;
    }
    // Queued requests hold the file, so removing it here cancels none of them.
    RemoveHandle(dwHandle);
    return CACHE_OK;
}

/// Forgets the sink first: what the closes report later must not reach it.
CmInt32 CWriteFileHandler::Destroy() {
    m_pSink = nullptr;
    FilesOf(m_vecWriteFiles).CloseAll();
    m_dwRecordID = 0;
    m_strHomeDir.clear();
    ReleaseReference();
    return CACHE_OK;
}

void CWriteFileHandler::OnFileOpStatus(CCacheFileManager::LinkType aLinkType,
                                       CCacheFileManager::OpType aOpType, CmInt32 aResult) {
    m_LinkType = aLinkType;
    m_OpType = aOpType;
    m_lStatus = aResult;
    if (m_pSink) m_pSink->OnFileOpStatus(aLinkType, aOpType, aResult);
}

void CWriteFileHandler::OnDataReady(unsigned char* /*lpData*/, CmUint32 /*dwLength*/,
                                    const tagDataInfo& /*aDataInfo*/) {
    CM_ASSERTION("!\"CWriteFileHandler::OnDataReady->No implementation\"");
}

CmInt32 CWriteFileHandler::GetFileStatus(CCacheFileManager::LinkType /*aLinkType*/) {
    return m_lStatus;
}
