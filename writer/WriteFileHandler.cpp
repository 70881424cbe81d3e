#include "writer/WriteFileHandler.h"

#include <algorithm>
#include <atomic>
#include <new>

#include "async/FileChain.h"
#include "core/HomeDir.h"
#include "core/PendingBytes.h"
#include "platform/CmTraceLine.h"

namespace {

std::atomic<CmUint32> s_dwLastHandle{0};

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
    if (!pFile) throw std::bad_alloc();
    // The list takes the file first: once it is open nothing may fail any more.
    m_vecWriteFiles.push_back({NewHandle(), pFile});
    const CmInt32 lResult = pFile->Open(strPath, 1);
    if (lResult != CACHE_OK) {
        m_vecWriteFiles.pop_back();
        TraceError("CWriteFileHandler::OpenWritingFile->Open file error=", lResult, " this=", this);
        return lResult;
    }
    dwHandle = m_vecWriteFiles.back().dwHandle;
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    TraceError("CWriteFileHandler::OpenWritingFile->Low memory to create a file", " this=", this);
    return CACHE_ERR_OUT_OF_MEMORY;
}

/// A number that is not 0 and names no open file of this handler. Handlers share the counter, so
/// that a handle of one means nothing to another.
CmUint32 CWriteFileHandler::NewHandle() {
    CmUint32 dwHandle = 0;
    do {
        dwHandle = s_dwLastHandle.fetch_add(1, std::memory_order_relaxed) + 1;
    } while (dwHandle == 0 || Find(dwHandle) != m_vecWriteFiles.end());
    if (m_vecWriteFiles.empty())
        m_bHandlesAscend = true;
    else if (dwHandle < m_vecWriteFiles.back().dwHandle)
        m_bHandlesAscend = false;
    return dwHandle;
}

CWriteFileHandler::WriteFiles::iterator CWriteFileHandler::Find(CmUint32 dwHandle) {
    const auto itEnd = m_vecWriteFiles.end();
    if (!m_bHandlesAscend)
        return std::find_if(m_vecWriteFiles.begin(), itEnd,
                            [&](const tagWriteFile& aFile) { return aFile.dwHandle == dwHandle; });
    // Files opened in a row have handles in a row, so the first place to look at is mostly right.
    const CmUint32 dwGuess =
        m_vecWriteFiles.empty() ? 0 : dwHandle - m_vecWriteFiles.front().dwHandle;
    if (dwGuess < m_vecWriteFiles.size() && m_vecWriteFiles[dwGuess].dwHandle == dwHandle)
        return m_vecWriteFiles.begin() + dwGuess;
    const auto it = std::lower_bound(
        m_vecWriteFiles.begin(), itEnd, dwHandle,
        [](const tagWriteFile& aFile, CmUint32 dwWanted) { return aFile.dwHandle < dwWanted; });
    return it != itEnd && it->dwHandle == dwHandle ? it : itEnd;
}

CmInt32 CWriteFileHandler::Handle2Pointer(CmUint32 dwHandle, IFileOperation*& pFile) {
    const auto it = Find(dwHandle);
    const bool bFound = it != m_vecWriteFiles.end();
    pFile = bFound ? it->pFile.Get() : nullptr;
    return bFound ? CACHE_OK : CACHE_ERR_NO_ENTRY;
}

CmInt32 CWriteFileHandler::RemoveHandle(CmUint32 dwHandle) {
    const auto it = Find(dwHandle);
    if (it == m_vecWriteFiles.end()) return CACHE_ERR_NO_ENTRY;
    m_vecWriteFiles.erase(it);
    return CACHE_OK;
}

CmInt32 CWriteFileHandler::WriteData(CmUint32 dwHandle, const unsigned char* lpData,
                                     CmUint32 dwLength, CmUint32 dwOffset) {
    CM_CHECK(lpData, "lpData", CACHE_ERR_INVALID_ARG);
    IFileOperation* pFile = nullptr;
    if (Handle2Pointer(dwHandle, pFile) != CACHE_OK) {
        TraceError("CWriteFileHandler::WriteData->Bad file handle", dwHandle, " this=", this);
        return CACHE_ERR_INVALID_STATE;
    }
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
    RemoveHandle(dwHandle);
    return CACHE_OK;
}

CmInt32 CWriteFileHandler::Destroy() {
    m_pSink = nullptr;
    for (const tagWriteFile& aFile : m_vecWriteFiles) aFile.pFile->Close();
    m_vecWriteFiles.clear();
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
