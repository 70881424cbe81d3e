// The operations of CFileThreadProxy that the request events call on the R/W thread.

#include <new>

#include "async/FileThreadProxy.h"
#include "async/ResultPoster.h"
#include "async/SyncReporter.h"
#include "fileop/SpaceWatch.h"
#include "fileop/SyncThread.h"
#include "platform/CmTraceLine.h"

/// Calls BeforeOperation of the manager, an operation of the next link, and AfterOperation.
template <class Operation>
CmInt32 CFileThreadProxy::Bracketed(Operation aOperation) {
    CCacheFileManager& aManager = CCacheFileManager::Instance();
    aManager.BeforeOperation(m_LinkType, ReceiverKey());
    CmInt32 lResult = CACHE_ERR_OUT_OF_MEMORY;
    try {
        lResult = aOperation();
    } catch (const std::bad_alloc&) {
    }
    aManager.AfterOperation(m_LinkType);
    return lResult;
}

CmInt32 CFileThreadProxy::Open_i(const CCmString& strPath, int bWrite, const CmPlace& aPlace) {
    CM_CHECK(m_pFileOp, c_szFile, CACHE_ERR_INVALID_STATE);
    ReportSyncs();
    const CmInt32 lResult =
        IsLinkUsable() ? Bracketed([&] { return m_pFileOp->OpenAt(strPath, bWrite, aPlace); })
                       : CmInt32{CACHE_ERR_FAILED};
    m_lOpenResult.store(lResult, std::memory_order_release);
    return lResult;
}

CmInt32 CFileThreadProxy::Close_i() {
    CM_CHECK(m_pFileOp, c_szFile, CACHE_ERR_INVALID_STATE);
    if (const CmInt32 lOpenResult = OpenResult()) return lOpenResult;
    return Bracketed([&] { return m_pFileOp->Close(); });
}

CmInt32 CFileThreadProxy::WriteData_i(const CCmString& strData, CmUint32 dwOffset) {
    CM_CHECK(m_pFileOp, c_szFile, CACHE_ERR_INVALID_STATE);
    if (!IsUsable()) return CACHE_ERR_FAILED;
    ReportSyncs();
    return Bracketed([&] { return m_pFileOp->WriteData(strData, dwOffset); });
}

tagAppended CFileThreadProxy::AppendBlocks_i(const CmFile::tagBlock* pBlocks, std::size_t nCount) {
    tagAppended aDone;
    if (!m_pFileOp || !IsUsable()) return aDone;
    ReportSyncs();
    Bracketed([&] {
        aDone = m_pFileOp->AppendBlocks(pBlocks, nCount);
        return aDone.lResult;
    });
    return aDone;
}

CmInt32 CFileThreadProxy::WriteData_i(CmInt32 lResult) {
    return Bracketed([&] { return lResult; });
}

/// An earlier sync on the sync thread may have failed. The system reports that failure only once,
/// so this sync succeeds although bytes written before it are lost. A host that waits for the
/// result (dwHandle is not 0) therefore gets the code of the earlier failure.
CmInt32 CFileThreadProxy::Sync_i(CmUint32 dwHandle) {
    CM_CHECK(m_pFileOp, c_szFile, CACHE_ERR_INVALID_STATE);
    if (!IsUsable()) return CACHE_ERR_FAILED;
    const CmInt32 lResult = m_pFileOp->Sync(0);
    CFileLedger* const pLedger = dwHandle != 0 ? Ledger() : nullptr;
    const CmInt32 lEarlier = pLedger ? pLedger->TakeReportedFailure() : CmInt32{CACHE_OK};
    return lResult != CACHE_OK ? lResult : lEarlier;
}

void CFileThreadProxy::PostSynced(CmUint32 dwHandle, CmInt32 lResult) {
    if (dwHandle != 0)
        Results().PostSynced(dwHandle, lResult);
    else if (lResult != CACHE_OK)
        PostFileStatus(m_LinkType, CCacheFileManager::Op_Write, lResult);
}

void CFileThreadProxy::CheckSpace(CSpaceWatch& aWatch) {
    std::uint64_t qwFree = 0;
    if (aWatch.HasFallen(*this, qwFree)) Results().PostLowSpace(qwFree);
}

/// Lets failures of the sync thread be reported to the receiver. If there is no memory for this,
/// the next call for the file returns them, as in synchronous mode.
void CFileThreadProxy::ReportSyncs() {
    if (m_bReportsSyncs || !CSyncThread::IsOn() || !Ledger()) return;
    const CRefPtr<ISyncReporter> pReporter(new (std::nothrow) CSyncReporter(
        m_pRWThread.Get(), m_pCallerThread.Get(), m_pReceive.Get(), m_LinkType));
    Ledger()->SetReporter(pReporter.Get());
    m_bReportsSyncs = bool{pReporter};
}

CmInt32 CFileThreadProxy::GetFreeSpace(std::uint64_t& qwBytes) {
    CM_CHECK(m_pFileOp, c_szFile, CACHE_ERR_INVALID_STATE);
    return IsUsable() ? m_pFileOp->GetFreeSpace(qwBytes) : CmInt32{CACHE_ERR_FAILED};
}

CmInt32 CFileThreadProxy::GetSize(std::uint64_t& qwSize) {
    CM_CHECK(m_pFileOp, c_szFile, CACHE_ERR_INVALID_STATE);
    const CmInt32 lOpenResult = OpenResult();
    return lOpenResult == CACHE_OK ? m_pFileOp->GetSize(qwSize) : lOpenResult;
}

CmInt32 CFileThreadProxy::SyncRead_i(unsigned char* lpBuffer, CmUint32 dwOffset,
                                     CmUint32& dwLength) {
    if (const CmInt32 lOpenResult = OpenResult()) return lOpenResult;
    return ReadInner(lpBuffer, dwOffset, dwLength);
}

CmInt32 CFileThreadProxy::ReadInner(unsigned char* lpBuffer, CmUint32 dwOffset,
                                    CmUint32& dwLength) try {
    return m_pFileOp->ReadData(lpBuffer, dwOffset, dwLength);
} catch (const std::bad_alloc&) {
    return CACHE_ERR_OUT_OF_MEMORY;
}

CmInt32 CFileThreadProxy::ReadData_i(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                     CmUint32 dwOffset, CmUint32 dwLength) {
    if (!m_pFileOp || !lpBuffer || !HasThreads()) {
        CM_ASSERTION(m_pFileOp && lpBuffer ? c_szThreads : "m_pFileOp.Get( )&&lpBuffer");
        delete[] lpBuffer;  // the read was accepted, but its data cannot be delivered
        return CACHE_ERR_INVALID_STATE;
    }
    CmInt32 lResult = CACHE_OK;
    CmUint32 dwRead = 0;
    if (IsUsable()) {
        dwRead = dwLength;
        lResult = ReadInner(lpBuffer, dwOffset, dwRead);
        if (lResult != CACHE_OK) {
            TraceError("CFileThreadProxy::ReadData_i->read data error, ret=", lResult,
                       " dwOffset=", dwOffset, " dwLength=", dwLength, " this=", this);
            dwRead = 0;
        }
    }
    Results().PostData(lpBuffer, dwRead, aDataInfo);
    return lResult;
}
