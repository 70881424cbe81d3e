#include "async/FileThreadProxy.h"

#include <exception>
#include <new>
#include <utility>

#include "async/FileEvents.h"
#include "async/ResultPoster.h"
#include "fileop/BlockStore.h"
#include "platform/CmTraceLine.h"

namespace {

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

CResultPoster CFileThreadProxy::Results() const {
    return {m_pCallerThread.Get(), m_pReceive.Get()};
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

/// If there is no queue, disposes of the event as a stopped queue would, because the caller no
/// longer owns it.
CmInt32 CFileThreadProxy::SendToReader(ICmEvent* pEvent) {
    const CRefPtr<ICmEventQueue> pQueue = m_pRWThread ? m_pRWThread->GetEventQueue() : nullptr;
    if (pQueue) return pQueue->SendEvent(pEvent);
    pEvent->OnDestorySelf();
    CM_ASSERTION("pQueue");
    return CACHE_ERR_INVALID_STATE;
}

CmInt32 CFileThreadProxy::Sync(CmUint32 dwHandle) {
    CM_CHECK(HasThreads(), c_szThreads, CACHE_ERR_INVALID_STATE);
    if (!m_bWrite) return CACHE_ERR_INVALID_STATE;
    if (!IsUsable()) return CACHE_ERR_FAILED;
    return PostRequest("pSyncEvent",
                       [&] { return new (std::nothrow) CSyncFileEvent(this, dwHandle); });
}

void CFileThreadProxy::PostFileStatus(CCacheFileManager::LinkType aLinkType,
                                      CCacheFileManager::OpType aOpType, CmInt32 lResult) {
    CM_CHECK(HasThreads(), c_szThreads, );
    const char* const lpMissing = Results().PostStatus({aLinkType, aOpType, lResult});
    CM_CHECK(!lpMissing, lpMissing, );
}

IFileOperation* CFileOperationFactory::CreateFileThreadProxy(
    ACmThread* pRWThread, ACmThread* pCallerThread, IFileOperation* pActualFile,
    IFileOpStatus* pReceive, CCacheFileManager::LinkType aLinkType) {
    return new (std::nothrow)
        CFileThreadProxy(pRWThread, pCallerThread, pActualFile, pReceive, aLinkType);
}
