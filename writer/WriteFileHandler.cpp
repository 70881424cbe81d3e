#include "writer/WriteFileHandler.h"

#include <atomic>
#include <new>

#include "async/FileChain.h"
#include "core/HomeDir.h"
#include "core/PendingBytes.h"
#include "core/RoomWakeUp.h"
#include "fileop/FileLedger.h"
#include "fileop/GatherAge.h"
#include "fileop/SpaceWatch.h"
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

/// Returns the open file of the handle, which the handler keeps, or null. Without one it traces the
/// line that begins with lpText.
IFileOperation* FindFile(std::vector<tagOpenFile>& vecFiles, CmUint32 dwHandle, const char* lpText,
                         const CWriteFileHandler* pHandler) {
    IFileOperation* const pFile = FilesOf(vecFiles).Find(dwHandle);
    if (!pFile) TraceError(lpText, dwHandle, " this=", pHandler);
    return pFile;
}

/// Returns whether a write may be passed on, before any of its bytes is taken, so that the host can
/// repeat the same call.
CmInt32 CheckWrite(IFileOperation& aFile, CmUint32 dwLength, CmUint32 dwOffset,
                   CPendingCount* pPending, const CWriteFileHandler* pHandler) {
    CmInt32 lResult = CFileLedger::TakeSyncFailureOf(aFile);
    if (lResult != CACHE_OK) {
        TraceError("CWriteFileHandler::WriteData->Sync error=", lResult, " this=", pHandler);
        return lResult;
    }
    if (CPendingBytes::HasLimit(pPending))
        lResult = CPendingBytes::CheckRoom(aFile.BytesToQueue(dwLength, dwOffset), pPending);
    if (lResult != CACHE_OK) CGatherAge::FlushAged();
    return lResult;
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
    return CHomeDir(m_strHomeDir, "CWriteFileHandler::Initialize", this)
        .AppendRecord(CCacheFileManager::Instance().GetTempHomeDir(), m_dwRecordID);
}

void CWriteFileHandler::SetHomeDir(const CCmString& strHomeDir) {
    CHomeDir(m_strHomeDir, "CWriteFileHandler::SetHomeDir", this).Set(strHomeDir);
}

CCmString& CWriteFileHandler::GetTempHomeDir() { return m_strHomeDir; }

CmInt32 CWriteFileHandler::OpenWritingFile(const CCmString& strFileName, CmUint32& dwHandle) try {
    const CAgedFlush aAgedFlush;
    dwHandle = 0;
    const CCmString strPath = m_strHomeDir + strFileName;
    const CRefPtr<IFileOperation> pFile =
        CFileChain::Build(FileChainKind::WriteRecord, 1, m_bAsync, this);
    if (!pFile) return NoMemoryToOpen(this);
    if (m_pPending) pFile->CountPendingIn(m_pPending.Get());
    // The file is added before it is opened, so that nothing can fail after a successful open.
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
    IFileOperation* const pFile =
        FindFile(m_vecWriteFiles, dwHandle, "CWriteFileHandler::WriteData->Bad file handle", this);
    if (!pFile) return CACHE_ERR_INVALID_STATE;
    CmInt32 lResult = CACHE_OK;
    if (CFileLedger::HasSyncFailure() || CPendingBytes::HasLimit(m_pPending.Get())) {
        lResult = CheckWrite(*pFile, dwLength, dwOffset, m_pPending.Get(), this);
        if (lResult != CACHE_OK) return lResult;
    }
    lResult = pFile->WriteBytes(reinterpret_cast<const char*>(lpData), dwLength, dwOffset);
    if (lResult != CACHE_OK)
        TraceError("CWriteFileHandler::WriteData->Write Data error=", lResult, " this=", this);
    if (m_pSpaceWatch && !m_bAsync) {
        std::uint64_t qwFree = 0;
        const bool bLow = m_pSpaceWatch->HasFallen(*pFile, qwFree);
        if (bLow) OnLowSpace(qwFree);  // last, because the callback may destroy this handler
    }
    return lResult;
}

CmInt32 CWriteFileHandler::SetPendingLimit(std::uint64_t qwBytes) {
    if (!m_pPending) {
        m_pPending = new (std::nothrow) CPendingCount;
        if (!m_pPending) return CACHE_ERR_OUT_OF_MEMORY;
        for (const tagOpenFile& aFile : m_vecWriteFiles)
            aFile.pFile->CountPendingIn(m_pPending.Get());
    }
    m_pPending->SetLimit(qwBytes);
    CRoomWakeUp::OnFinished();
    return CACHE_OK;
}

void CWriteFileHandler::FlushData(CmUint32 dwHandle) {
    const CAgedFlush aAgedFlush;
    IFileOperation* const pFile =
        FindFile(m_vecWriteFiles, dwHandle, "CWriteFileHandler::FlushData->Bad file handle=", this);
    if (pFile) pFile->Flush();
}

CmInt32 CWriteFileHandler::CloseFile(CmUint32 dwHandle) {
    const CAgedFlush aAgedFlush;
    IFileOperation* const pFile =
        FindFile(m_vecWriteFiles, dwHandle, "CWriteFileHandler::CloseFile->Bad file handle=", this);
    if (!pFile) return CACHE_ERR_INVALID_STATE;
    CmInt32 lResult = CFileLedger::TakeSyncFailureOf(*pFile);
    if (lResult == CACHE_OK) lResult = pFile->Close();
    if (lResult != CACHE_OK) {
        TraceError("CWriteFileHandler::CloseFile->Close file error=", lResult, " this=", this);
        return lResult;
    }
    // Queued requests hold references to the file, so they are still carried out.
    RemoveHandle(dwHandle);
    return CACHE_OK;
}

CmInt32 CWriteFileHandler::SyncFile(CmUint32 dwHandle) {
    const CAgedFlush aAgedFlush;
    IFileOperation* const pFile =
        FindFile(m_vecWriteFiles, dwHandle, "CWriteFileHandler::SyncFile->Bad file handle=", this);
    if (!pFile) return CACHE_ERR_INVALID_STATE;
    CmInt32 lResult = pFile->Sync(m_pSafetySink ? dwHandle : 0);
    const CmInt32 lEarlier = CFileLedger::TakeSyncFailureOf(*pFile);
    if (lResult == CACHE_OK) lResult = lEarlier;
    if (lResult != CACHE_OK)
        TraceError("CWriteFileHandler::SyncFile->Sync file error=", lResult, " this=", this);
    return lResult;
}

CmInt32 CWriteFileHandler::GetFileLosses(CmUint32 dwHandle, tagFileLosses& aLosses) try {
    IFileOperation* pFile = nullptr;
    if (Handle2Pointer(dwHandle, pFile) != CACHE_OK) return CACHE_ERR_INVALID_STATE;
    CFileLedger* const pLedger = pFile->Ledger();
    aLosses = pLedger ? pLedger->Get() : tagFileLosses();
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return CACHE_ERR_OUT_OF_MEMORY;
}

CmInt32 CWriteFileHandler::SetLowSpaceMark(std::uint64_t qwBytes) {
    if (!m_pSpaceWatch) m_pSpaceWatch = new (std::nothrow) CSpaceWatch;
    if (!m_pSpaceWatch) return CACHE_ERR_OUT_OF_MEMORY;
    m_pSpaceWatch->SetMark(qwBytes);
    return CACHE_OK;
}

CSpaceWatch* CWriteFileHandler::GetSpaceWatch() { return m_pSpaceWatch.Get(); }

void CWriteFileHandler::OnLowSpace(std::uint64_t qwFreeBytes) {
    if (m_pSafetySink) m_pSafetySink->OnLowSpace(qwFreeBytes);
}

void CWriteFileHandler::OnFileSynced(CmUint32 dwHandle, CmInt32 lResult) {
    if (m_pSafetySink) m_pSafetySink->OnFileSynced(dwHandle, lResult);
}

/// Resets the sinks first, because results of the closes must not reach them.
CmInt32 CWriteFileHandler::Destroy() {
    m_pSink = nullptr;
    m_pSafetySink = nullptr;
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
