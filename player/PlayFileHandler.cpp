#include "player/PlayFileHandler.h"

#include <new>

#include "async/FileChain.h"
#include "async/FileThreadManager.h"
#include "core/HomeDir.h"
#include "download/PlayDataFile.h"
#include "fileop/GatherAge.h"
#include "platform/CmTraceLine.h"
#include "player/PlayedFiles.h"

CPlayFileHandler* CCacheFileManager::CreatePlayFileHandler(CmUint32 dwRecordID, int bDownload,
                                                           int bAsync) {
    TraceInfo("CCacheFileManager::CreatePlayFileHandler->dwRecordID=", dwRecordID,
              " bAsync=", bAsync);
    CPlayFileHandler* const pHandler =
        new (std::nothrow) CPlayFileHandler(dwRecordID, bDownload, bAsync);
    if (!pHandler) {
        TraceError("Low memory to create a CPlayFileHandler object");
        return nullptr;
    }
    pHandler->AddReference();
    return pHandler;
}

CPlayFileHandler::CPlayFileHandler(CmUint32 dwRecordID, int bDownload, int bAsync)
    : m_dwRecordID(dwRecordID), m_bDownload(bDownload), m_bAsync(bAsync) {}

CPlayFileHandler::~CPlayFileHandler() {
    m_pRecordFiles.reset();
    if (!m_pDownloadFile) return;
    m_pDownloadFile->CloseFile();
    delete m_pDownloadFile;
}

CmInt32 CPlayFileHandler::Initialize(IFileOpSink* pSink) {
    m_lStatus = CACHE_OK;
    m_pSink = pSink;
    m_LinkType = CCacheFileManager::Link_Local;
    m_OpType = CCacheFileManager::Op_Open;
    return CHomeDir(m_strHomeDir, "CPlayFileHandler::Initialize", this)
        .AppendRecord(CCacheFileManager::Instance().GetTempHomeDir(), m_dwRecordID);
}

void CPlayFileHandler::SetHomeDir(const CCmString& strHomeDir) {
    CHomeDir(m_strHomeDir, "CPlayFileHandler::SetHomeDir", this).Set(strHomeDir);
}

CCmString& CPlayFileHandler::GetTempHomeDir() { return m_strHomeDir; }

CmInt32 CPlayFileHandler::OpenRecordFile(const CCmString& strFileName,
                                         const tagFileDescriber& aFileDescriber, int bWrite) try {
    const CAgedFlush aAgedFlush;
    CM_CHECK(!m_pDownloadFile, "!m_pDownloadFile", CACHE_ERR_INVALID_STATE);
    const CCmString strPath = m_strHomeDir + strFileName;
    const CRefPtr<IFileOperation> pFile =
        CFileChain::Build(FileChainKind::PlayRecord, bWrite, m_bAsync, this);
    CM_CHECK(pFile, "pFile.Get( )", CACHE_ERR_OUT_OF_MEMORY);
    // The file is added before it is opened, so that nothing can fail after a successful open.
    if (!m_pRecordFiles) m_pRecordFiles = std::make_unique<cachefile_internal::tagPlayedFiles>();
    m_pRecordFiles->aTable.Add({aFileDescriber, pFile});
    const CmInt32 lResult = pFile->Open(strPath, bWrite);
    if (lResult != CACHE_OK) {
        m_pRecordFiles->aTable.RemoveLast();
        TraceError("CPlayFileHandler::OpenRecordFile->Open file error=", lResult, " this=", this);
    }
    return lResult;
} catch (const std::bad_alloc&) {
    TraceError("CPlayFileHandler::OpenRecordFile->Low memory to open a file", " this=", this);
    return CACHE_ERR_OUT_OF_MEMORY;
}

CmInt32 CPlayFileHandler::OpenDownloadedFile(const CCmString& strFilePath,
                                             std::vector<tagFileDescriber>& vecFileDescriber) {
    const CAgedFlush aAgedFlush;
    CM_CHECK(m_bDownload, "m_bDownload", CACHE_ERR_INVALID_STATE);
    CM_CHECK(!m_pDownloadFile, "!m_pDownloadFile", CACHE_ERR_ALREADY_OPEN);
    m_pDownloadFile = new (std::nothrow) CDownloadFileHandler(m_bAsync);
    CM_CHECK(m_pDownloadFile, "m_pDownloadFile", CACHE_ERR_OUT_OF_MEMORY);
    if (m_pDownloadFile->Initialize(this) != CACHE_OK) {
        TraceError("CPlayFileHandler::OpenDownloadedFile->Call Initialize error", " this=", this);
        delete m_pDownloadFile;
        m_pDownloadFile = nullptr;
        return CACHE_ERR_FAILED;
    }
    return m_pDownloadFile->OpenDownloadedFile(strFilePath, vecFileDescriber);
}

CmInt32 CPlayFileHandler::CloseAllRecordFiles() {
    if (m_pDownloadFile) m_pDownloadFile->CloseFile();
    if (!m_pRecordFiles) return CACHE_OK;
    for (const auto& aFile : m_pRecordFiles->aTable)
        if (aFile.pFile) aFile.pFile->Close();
    return CACHE_OK;
}

CmInt32 CPlayFileHandler::Destroy() {
    CloseAllRecordFiles();
    if (m_pDownloadFile) {
        delete m_pDownloadFile;  // stops the worker in asynchronous mode
        m_pDownloadFile = nullptr;
    } else if (m_bDownload && m_bAsync) {
        // Stops the worker although no container was opened, so that the end is always the same.
        CFileThreadManager* const pThreads = CFileThreadManager::Instance();
        pThreads->StopThread(pThreads->GetPrimaryNFSThread());
    }
    m_pRecordFiles.reset();
    m_pSink = nullptr;  // after the closes, whose callbacks still go to the sink
    ReleaseReference();
    return CACHE_OK;
}

CmUint32 CPlayFileHandler::GetCBTimeStamp() const {
    return m_pDownloadFile ? m_pDownloadFile->GetConfFileHeader().dwCBTimeStamp : m_dwCBTimeStamp;
}

CmUint32 CPlayFileHandler::GetFileVersion() const {
    return m_pDownloadFile ? m_pDownloadFile->GetConfFileHeader().dwFileVersion : m_dwFileVersion;
}

void CPlayFileHandler::OnFileOpStatus(CCacheFileManager::LinkType aLinkType,
                                      CCacheFileManager::OpType aOpType, CmInt32 aResult) {
    CM_CHECK(aLinkType == CCacheFileManager::Link_Local,
             "aLinkType == CCacheFileManager::Link_Local", );
    m_LinkType = aLinkType;
    m_OpType = aOpType;
    if (aResult != CACHE_OK) m_lStatus = aResult;
    if (m_pSink) m_pSink->OnFileOpStatus(CCacheFileManager::Link_Local, aOpType, aResult);
}

CmInt32 CPlayFileHandler::GetFileStatus(CCacheFileManager::LinkType aLinkType) {
    CM_CHECK(aLinkType == CCacheFileManager::Link_Local,
             "aLinkType == CCacheFileManager::Link_Local", CACHE_ERR_INVALID_ARG);
    return m_lStatus;
}
