#include "async/FileThreadProxy.h"

#include <exception>
#include <new>
#include <utility>

#include "async/FileEvents.h"
#include "async/SyncReporter.h"
#include "fileop/BlockStore.h"
#include "fileop/SyncThread.h"
#include "platform/CmTraceLine.h"

namespace {

constexpr char c_szThreads[] = "m_pRWThread && m_pCallerThread";
constexpr char c_szFile[] = "m_pFileOp.Get( )";

/// Returns the event, or null if there is no memory for it or for the data that it copies.
template <class MakeEvent>
ICmEvent* MakeOrNull(MakeEvent aMakeEvent) {
    try {
        return aMakeEvent();
    } catch (const std::exception&) {  // no memory, or more than a string can hold
        return nullptr;
    }
}

bool IsLinkType(CCacheFileManager::LinkType aLinkType) {
    return aLinkType == CCacheFileManager::Link_Primary ||
           aLinkType == CCacheFileManager::Link_Backup ||
           aLinkType == CCacheFileManager::Link_Local;
}

}  // namespace

CFileThreadProxy::CFileThreadProxy(ACmThread* pRWThread, ACmThread* pCallerThread,
                                   IFileOperation* pActualFile, IFileOpStatus* pReceive,
                                   CCacheFileManager::LinkType aLinkType)
    : m_pRWThread(pRWThread),
      m_pCallerThread(pCallerThread),
      m_pFileOp(pActualFile),
      m_pReceive(pReceive),
      m_LinkType(aLinkType) {
    if (!(pRWThread && pCallerThread && pActualFile && pReceive))
        CM_ASSERTION("pRWThread && pCallerThread && pActualFile && pReceive");
    else if (!IsLinkType(aLinkType))
        CM_ASSERTION(
            "( aLinkType == CCacheFileManager::Link_Primary) || "
            "( aLinkType == CCacheFileManager::Link_Backup) || "
            "( aLinkType == CCacheFileManager::Link_Local)");
}

CFileThreadProxy::~CFileThreadProxy() {
    m_pRWThread = m_pCallerThread = nullptr;
    m_pFileOp = nullptr;  // closes the file before the receiver may be destroyed
    m_pReceive = nullptr;
}

bool CFileThreadProxy::IsLinkUsable() const {
    return CCacheFileManager::Instance().GetLinkStatusFromMap(ReceiverKey(), m_LinkType) != 0;
}

/// Makes a request and posts it to the R/W thread. If there is no memory for it, traces an
/// assertion with its name. The queue owns the request as soon as it is posted, even if it refuses
/// it.
template <class MakeEvent>
CmInt32 CFileThreadProxy::PostRequest(const char* lpEventName, MakeEvent aMakeEvent) {
    const CRefPtr<ICmEventQueue> pQueue = m_pRWThread->GetEventQueue();
    CM_CHECK(pQueue, "pQueue", CACHE_ERR_INVALID_STATE);
    ICmEvent* const pEvent = MakeOrNull(aMakeEvent);
    CM_CHECK(pEvent, lpEventName, CACHE_ERR_OUT_OF_MEMORY);
    return pQueue->PostEvent(pEvent, c_lPostOption);
}

CmInt32 CFileThreadProxy::Open(const CCmString& strPath, int bWrite) try {
    // Stored first, because GetFileName returns the path of an open that failed, too.
    m_bWrite = bWrite;
    m_strFilePath = strPath;
    CM_CHECK(HasThreads(), c_szThreads, CACHE_ERR_INVALID_STATE);
    CM_CHECK(m_pRWThread->GetEventQueue(), "pQueue", CACHE_ERR_INVALID_STATE);
    if (!IsLinkUsable()) {
        m_lOpenResult.store(CACHE_ERR_FAILED, std::memory_order_release);
        return CACHE_ERR_FAILED;
    }
    return PostRequest("pOpenEvent", [&] {
        return new (std::nothrow) COpenCloseEvent(this, m_strFilePath, 1, bWrite);
    });
} catch (const std::bad_alloc&) {
    return CACHE_ERR_OUT_OF_MEMORY;
}

CmInt32 CFileThreadProxy::Close() {
    CM_CHECK(HasThreads(), c_szThreads, CACHE_ERR_INVALID_STATE);
    CM_CHECK(m_pRWThread->GetEventQueue(), "pQueue", CACHE_ERR_INVALID_STATE);
    if (const CmInt32 lOpenResult = OpenResult()) return lOpenResult;
    return PostRequest("pOpenEvent", [&] {
        return new (std::nothrow) COpenCloseEvent(this, m_strFilePath, 0, 1);
    });
}

/// Posts a write of the string that aMakeData returns.
template <class MakeData>
CmInt32 CFileThreadProxy::PostWrite(CmUint32 dwOffset, MakeData aMakeData) {
    CM_CHECK(HasThreads(), c_szThreads, CACHE_ERR_INVALID_STATE);
    if (!m_bWrite) return CACHE_ERR_INVALID_STATE;
    if (!IsUsable()) return CACHE_ERR_FAILED;
    return PostRequest("pWriteEvent", [&] {
        return new (std::nothrow) CWriteEvent(this, dwOffset, aMakeData(), m_pPending.Get());
    });
}

CmInt32 CFileThreadProxy::WriteData(const CCmString& strData, CmUint32 dwOffset) {
    return PostCopy(strData.data(), strData.size(), dwOffset);
}

CmInt32 CFileThreadProxy::WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) {
    return PostCopy(lpData, nLength, dwOffset);
}

CmInt32 CFileThreadProxy::GiveData(CCmString&& strData, CmUint32 dwOffset) {
    return PostWrite(dwOffset, [&] { return std::move(strData); });
}

/// Posts a write of a copy of the bytes. The copy uses a block of CBlockStore if one is free.
CmInt32 CFileThreadProxy::PostCopy(const char* lpData, std::size_t nLength, CmUint32 dwOffset) {
    return PostWrite(dwOffset, [&] {
        // Twice the length at most, so that pending bytes are a fair measure of the memory used.
        CCmString strData = CBlockStore::Instance().Take(nLength, 2 * nLength);
        strData.assign(lpData, nLength);
        return strData;
    });
}

std::uint64_t CFileThreadProxy::BytesToQueue(std::uint64_t qwLength, CmUint32 /*dwOffset*/) {
    const bool bTaken = m_bWrite && IsUsable() && HasThreads() && m_pRWThread->GetEventQueue();
    return bTaken ? qwLength : 0;
}

CmInt32 CFileThreadProxy::AsyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                        CmUint32 dwOffset, CmUint32& dwLength) {
    CM_CHECK(HasThreads(), c_szThreads, CACHE_ERR_INVALID_STATE);
    CM_CHECK(lpBuffer, "lpBuffer", CACHE_ERR_INVALID_ARG);
    CM_CHECK(dwLength, "dwLength", CACHE_ERR_INVALID_ARG);
    if (!IsUsable()) return CACHE_ERR_FAILED;
    return PostRequest("pReadEvent", [&] {
        return new (std::nothrow) CReadEvent(this, lpBuffer, dwLength, dwOffset, aDataInfo);
    });
}

CmInt32 CFileThreadProxy::ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) {
    CM_CHECK(lpBuffer && m_pFileOp, "lpBuffer&&m_pFileOp.Get( )", CACHE_ERR_INVALID_ARG);
    CM_CHECK(dwLength, "dwLength", CACHE_ERR_INVALID_ARG);
    if (const CmInt32 lOpenResult = OpenResult()) return lOpenResult;
    if (m_pRWThread && !m_pRWThread->IsCurrent()) {
        if (const CRefPtr<ICmEventQueue> pQueue = m_pRWThread->GetEventQueue()) {
            std::optional<CmInt32> aResult;
            ICmEvent* const pEvent =
                new (std::nothrow) CSyncReadEvent(this, lpBuffer, dwOffset, dwLength, aResult);
            CM_CHECK(pEvent, "pReadEvent", CACHE_ERR_OUT_OF_MEMORY);
            pQueue->SendEvent(pEvent);
            if (aResult) return *aResult;
        }
        m_pRWThread->Join();  // the thread was stopped; it first does everything that was queued
    }
    return SyncRead_i(lpBuffer, dwOffset, dwLength);
}

CmInt32 CFileThreadProxy::GetSize(std::uint64_t& qwSize) {
    CM_CHECK(m_pFileOp, c_szFile, CACHE_ERR_INVALID_STATE);
    const CmInt32 lOpenResult = OpenResult();
    return lOpenResult == CACHE_OK ? m_pFileOp->GetSize(qwSize) : lOpenResult;
}

/// If there is no queue, disposes of the event as a stopped queue would, because the caller no
/// longer owns it.
CmInt32 CFileThreadProxy::SendToReader(ICmEvent* pEvent) {
    const CRefPtr<ICmEventQueue> pQueue = m_pRWThread ? m_pRWThread->GetEventQueue() : nullptr;
    if (pQueue) return pQueue->SendEvent(pEvent);
    pEvent->OnDestorySelf();
    CM_ASSERTION("pQueue");
    return CACHE_ERR_INVALID_STATE;
}

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

CmInt32 CFileThreadProxy::Sync(CmUint32 dwHandle) {
    CM_CHECK(HasThreads(), c_szThreads, CACHE_ERR_INVALID_STATE);
    if (!m_bWrite) return CACHE_ERR_INVALID_STATE;
    if (!IsUsable()) return CACHE_ERR_FAILED;
    return PostRequest("pSyncEvent",
                       [&] { return new (std::nothrow) CSyncFileEvent(this, dwHandle); });
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
    if (dwHandle == 0 && lResult != CACHE_OK)
        PostFileStatus(m_LinkType, CCacheFileManager::Op_Write, lResult);
    if (dwHandle != 0)
        PostToCaller(new (std::nothrow) CFileSyncedEvent(m_pReceive.Get(), dwHandle, lResult));
}

void CFileThreadProxy::CheckSpace(CSpaceWatch& aWatch) {
    std::uint64_t qwFree = 0;
    if (aWatch.HasFallen(*this, qwFree))
        PostToCaller(new (std::nothrow) CLowSpaceEvent(m_pReceive.Get(), qwFree));
}

/// Posts pEvent. Null means that there was no memory for the event; then nothing is reported.
void CFileThreadProxy::PostToCaller(ICmEvent* pEvent) {
    if (!pEvent) return;
    if (const CRefPtr<ICmEventQueue> pQueue = m_pCallerThread->GetEventQueue())
        pQueue->PostEvent(pEvent, c_lPostOption);
    else
        pEvent->OnDestorySelf();
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
    DeliverData(lpBuffer, dwRead, aDataInfo);
    return lResult;
}

/// Sends the buffer to the receiver, or frees it if that is not possible.
void CFileThreadProxy::DeliverData(unsigned char* lpBuffer, CmUint32 dwLength,
                                   const tagDataInfo& aDataInfo) {
    const CRefPtr<ICmEventQueue> pQueue = m_pCallerThread->GetEventQueue();
    ICmEvent* const pDataEvent =
        pQueue ? new (std::nothrow) CFileDataEvent(m_pReceive.Get(), lpBuffer, dwLength, aDataInfo)
               : nullptr;
    if (pDataEvent)
        pQueue->PostEvent(pDataEvent, c_lPostOption);
    else
        delete[] lpBuffer;
}

void CFileThreadProxy::PostFileStatus(CCacheFileManager::LinkType aLinkType,
                                      CCacheFileManager::OpType aOpType, CmInt32 lResult) {
    CM_CHECK(HasThreads(), c_szThreads, );
    const CRefPtr<ICmEventQueue> pQueue = m_pCallerThread->GetEventQueue();
    CM_CHECK(pQueue, "pQueue", );
    ICmEvent* const pStatusEvent = new (std::nothrow)
        CFileStatusEvent(m_pReceive.Get(), tagFileStatus{aLinkType, aOpType, lResult});
    CM_CHECK(pStatusEvent, "pStatusEvent", );
    pQueue->PostEvent(pStatusEvent, c_lPostOption);
}

IFileOperation* CFileOperationFactory::CreateFileThreadProxy(
    ACmThread* pRWThread, ACmThread* pCallerThread, IFileOperation* pActualFile,
    IFileOpStatus* pReceive, CCacheFileManager::LinkType aLinkType) {
    return new (std::nothrow)
        CFileThreadProxy(pRWThread, pCallerThread, pActualFile, pReceive, aLinkType);
}
