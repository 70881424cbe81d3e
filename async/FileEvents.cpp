#include "async/FileEvents.h"

#include <utility>

#include "fileop/BlockStore.h"
#include "platform/CmFile.h"
#include "platform/CmTraceLine.h"

namespace {

/// The largest number of bytes that are appended together. The host gets their memory back only
/// after the last of them is written.
constexpr std::size_t c_nMaxJoined = 512U << 10;

}  // namespace

COpenCloseEvent::COpenCloseEvent(CFileThreadProxy* pAsyncFileOp, const CCmString& strFilePath,
                                 int bOpen, int bWrite)
    : ICmEvent(0),
      m_pAsyncFileOp(pAsyncFileOp),
      m_bOpen(bOpen),
      m_bWrite(bWrite),
      m_strFilePath(strFilePath),
      m_place(bOpen ? CmPlace::Take(strFilePath) : CmPlace()) {
    if (!pAsyncFileOp) CM_ASSERTION("pAsyncFileOp");
}

CmInt32 COpenCloseEvent::OnEventFire() {
    CM_CHECK(m_pAsyncFileOp, "m_pAsyncFileOp.Get( )", CACHE_ERR_INVALID_STATE);
    return m_bOpen ? FireOpen() : FireClose();
}

/// Reports a success too, because a host cannot find out in another way that an open is done.
CmInt32 COpenCloseEvent::FireOpen() {
    const CmInt32 lResult = m_pAsyncFileOp->Open_i(m_strFilePath, m_bWrite, m_place);
    if (lResult != CACHE_OK)
        TraceError("COpenCloseEvent::OnEventFire->Open File error:", m_strFilePath, " this=", this);
    m_pAsyncFileOp->PostFileStatus(m_pAsyncFileOp->GetLinkType(), CCacheFileManager::Op_Open,
                                   lResult);
    return lResult;
}

CmInt32 COpenCloseEvent::FireClose() {
    const CmInt32 lResult = m_pAsyncFileOp->Close_i();
    if (lResult == CACHE_OK) return lResult;
    TraceError("COpenCloseEvent::OnEventFire->Close File error:", m_strFilePath, " this=", this);
    m_pAsyncFileOp->PostFileStatus(m_pAsyncFileOp->GetLinkType(), CCacheFileManager::Op_Close,
                                   lResult);
    return lResult;
}

CReadEvent::CReadEvent(CFileThreadProxy* pAsyncFileOp, unsigned char* lpBuffer, CmUint32 dwLength,
                       CmUint32 dwOffset, const tagDataInfo& aDataInfo)
    : ICmEvent(0),
      m_pAsyncFileOp(pAsyncFileOp),
      m_lpBuffer(lpBuffer),
      m_dwLength(dwLength),
      m_dwFileOffset(dwOffset),
      m_DataInfo(aDataInfo) {
    if (!pAsyncFileOp)
        CM_ASSERTION("pAsyncFileOp");
    else if (!lpBuffer)
        CM_ASSERTION("lpBuffer");
    else if (!dwLength)
        CM_ASSERTION("dwLength");
}

CmInt32 CReadEvent::OnEventFire() {
    if (!m_pAsyncFileOp) {
        CM_ASSERTION("m_pAsyncFileOp.Get( )");
        delete[] m_lpBuffer;  // the request was accepted, so the caller no longer owns the buffer
        return CACHE_ERR_INVALID_STATE;
    }
    const CmInt32 lResult =
        m_pAsyncFileOp->ReadData_i(m_DataInfo, m_lpBuffer, m_dwFileOffset, m_dwLength);
    if (lResult == CACHE_OK) return lResult;
    TraceError("CReadEvent::OnEventFire->Read data error, ret=", lResult,
               " m_dwFileOffset=", m_dwFileOffset, " m_dwLength=", m_dwLength, " this=", this);
    m_pAsyncFileOp->PostFileStatus(m_pAsyncFileOp->GetLinkType(), CCacheFileManager::Op_Read,
                                   lResult);
    return lResult;
}

CWriteEvent::CWriteEvent(CFileThreadProxy* pAsyncFileOp, CmUint32 dwOffset, CCmString strData,
                         CPendingCount* pPending)
    : ICmEvent(0, CPendingBytes::GetUrgency(strData.size(), pPending)),
      m_pAsyncFileOp(pAsyncFileOp),
      m_dwFileOffset(dwOffset),
      m_pending(strData.size(), pPending),
      m_strData(std::move(strData)),
      m_pLedger(pAsyncFileOp ? pAsyncFileOp->Ledger() : nullptr),
      m_pSpaceWatch(pAsyncFileOp ? pAsyncFileOp->GetSpaceWatch() : nullptr) {
    if (!pAsyncFileOp) CM_ASSERTION("pAsyncFileOp");
    if (m_pLedger) m_pLedger->Queue(m_strData.size(), dwOffset);
}

CWriteEvent::~CWriteEvent() {
    if (m_pLedger && !m_bFired && m_result != CACHE_OK)
        m_pLedger->Unqueue(m_strData.size(), m_dwFileOffset);
    CBlockStore::Instance().Give(std::move(m_strData));
}

CmInt32 CWriteEvent::OnEventFire() {
    CM_CHECK(m_pAsyncFileOp, "m_pAsyncFileOp.Get( )", CACHE_ERR_INVALID_STATE);
    m_bFired = true;
    if (m_pSpaceWatch) m_pAsyncFileOp->CheckSpace(*m_pSpaceWatch);
    const CmInt32 lResult = Write();
    if (lResult == CACHE_OK) return lResult;
    // The call that passed the bytes has returned 0 already, so the failure is counted here.
    if (m_pLedger)
        m_pLedger->LoseQueued(m_strData.size(), m_dwFileOffset);
    else
        CCacheFileManager::AddLostBytes(m_strData.size());
    m_pAsyncFileOp->PostFileStatus(m_pAsyncFileOp->GetLinkType(), CCacheFileManager::Op_Write,
                                   lResult);
    return lResult;
}

bool CWriteEvent::IsAppendTo(const CFileThreadProxy* pFile) const {
    return m_pAsyncFileOp.Get() == pFile && m_dwFileOffset == CCacheFileManager::GetMaxDword() &&
           !m_strData.empty();
}

CmInt32 CWriteEvent::Write() {
    if (m_result) return m_pAsyncFileOp->WriteData_i(*m_result);
    AppendWithFollowing();
    return m_result ? *m_result : m_pAsyncFileOp->WriteData_i(m_strData, m_dwFileOffset);
}

/// Appends the bytes together with those of the following events, if there are any that append to
/// the same file.
void CWriteEvent::AppendWithFollowing() {
    CWriteEvent* aEvents[CmFile::c_nMaxBlocks];
    CmFile::tagBlock aBlocks[CmFile::c_nMaxBlocks];
    std::size_t nCount = 0;
    std::size_t nBytes = 0;
    const auto add = [&](CWriteEvent* p) {
        const std::size_t nLength = p->m_strData.size();
        if (nCount == CmFile::c_nMaxBlocks || nLength > c_nMaxJoined - nBytes) return false;
        aEvents[nCount] = p;
        aBlocks[nCount++] = {p->m_strData.data(), nLength};
        nBytes += nLength;
        return true;
    };
    for (CWriteEvent* p = this; p && p->IsAppendTo(m_pAsyncFileOp.Get()) && add(p);)
        p = dynamic_cast<CWriteEvent*>(p->GetFollowing());
    if (nCount < 2) return;
    const tagAppended aDone = m_pAsyncFileOp->AppendBlocks_i(aBlocks, nCount);
    for (std::size_t i = 0; i < aDone.nBlocks; ++i) aEvents[i]->m_result = CACHE_OK;
    if (aDone.lResult != CACHE_OK) aEvents[aDone.nBlocks]->m_result = aDone.lResult;
}

CmInt32 CSyncFileEvent::OnEventFire() {
    const CmInt32 lResult = m_pAsyncFileOp->Sync_i(m_dwHandle);
    m_pAsyncFileOp->PostSynced(m_dwHandle, lResult);
    return lResult;
}

CSyncReadEvent::CSyncReadEvent(CFileThreadProxy* pAsyncFileOp, unsigned char* lpBuffer,
                               CmUint32 dwOffset, CmUint32& dwLength,
                               std::optional<CmInt32>& aResult)
    : ICmEvent(0),
      m_pAsyncFileOp(pAsyncFileOp),
      m_lpBuffer(lpBuffer),
      m_dwFileOffset(dwOffset),
      m_dwLength(dwLength),
      m_result(aResult) {}

CmInt32 CSyncReadEvent::OnEventFire() {
    m_result = m_pAsyncFileOp->SyncRead_i(m_lpBuffer, m_dwFileOffset, m_dwLength);
    return *m_result;
}
