#pragma once

#include <atomic>
#include <cstdint>

#include "core/FileOpSink.h"
#include "core/PendingBytes.h"
#include "fileop/FileOperation.h"
#include "platform/CmThread.h"

/// Carries the operations of a file to the R/W thread and brings the outcomes back to a handler on
/// the caller thread.
///
/// Owned by the link above it and by every request still queued, so dropping it cancels nothing.
/// It holds a reference on the receiving handler.
///
/// The caller's side calls the operations of IFileOperation, and the request events call the group
/// after them, on the R/W thread, one at a time and in the order of the requests. Both sides use
/// m_lOpenResult, which is an atomic; each of the other members is constant or used on one side.
///
/// A call returns the result of queuing. The outcome follows as a callback: of an open always, of a
/// close or write on failure, of a read as its data, and then a status if the read failed.
class CFileThreadProxy final : public IFileOperation {
 public:
    /// Takes a reference on each thread, on pActualFile, the link below, and on pReceive. If one of
    /// the four is null, an assertion is traced and the object is built all the same. Without a
    /// thread everything but a synchronous read returns CACHE_ERR_INVALID_STATE; without a file
    /// operations fail with that code on the R/W thread; without a receiver nothing is reported.
    CFileThreadProxy(ACmThread* pRWThread, ACmThread* pCallerThread, IFileOperation* pActualFile,
                     IFileOpStatus* pReceive, CCacheFileManager::LinkType aLinkType);
    ~CFileThreadProxy() override;

    /// A relative path begins in the directory that is current in this call, even if another one is
    /// current when the file is opened. If the system does not give it, Op_Open reports why.
    CmInt32 Open(const CCmString& strPath, int bWrite) override;
    CmInt32 Close() override;
    CmInt32 WriteData(const CCmString& strData, CmUint32 dwOffset) override;

    /// Waits for the R/W thread, and so sees everything that was queued before it.
    CmInt32 ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) override;

    CmInt32 AsyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                          CmUint32& dwLength) override;
    const CCmString& GetFileName() override { return m_strFilePath; }

    /// Does nothing: every write flushes itself.
    void Flush() override {}

    CmInt32 WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) override;
    CmInt32 GiveData(CCmString&& strData, CmUint32 dwOffset) override;

    /// All of them, unless WriteData would refuse them.
    std::uint64_t BytesToQueue(std::uint64_t qwLength, CmUint32 dwOffset) override;

    void CountPendingIn(CPendingCount* pCount) override { m_pPending = pCount; }
    tagFileThreads GetThreads() override { return {m_pRWThread.Get(), m_pCallerThread.Get()}; }

    /// Called on the R/W thread only.
    CmInt32 GetSize(std::uint64_t& qwSize) override;

    CmInt32 SendToReader(ICmEvent* pEvent) override;

    /// Queues the sync. Its result comes as OnFileSynced of the receiver for dwHandle.
    CmInt32 Sync(CmUint32 dwHandle) override;
    CFileLedger* Ledger() override { return m_pFileOp ? m_pFileOp->Ledger() : nullptr; }
    /// Only on the R/W thread.
    CmInt32 GetFreeSpace(std::uint64_t& qwBytes) override;

    /// For writes that are being queued: what watches the receiver's free space, or null.
    CSpaceWatch* GetSpaceWatch() { return m_pReceive ? m_pReceive->GetSpaceWatch() : nullptr; }

    // For the request events (FileEvents.h), on the R/W thread only. Each returns the code that its
    // event reports.

    /// Opens the inner file and stores the outcome for both sides.
    CmInt32 Open_i(const CCmString& strPath, int bWrite, const CmPlace& aPlace);
    CmInt32 Close_i();
    CmInt32 WriteData_i(const CCmString& strData, CmUint32 dwOffset);

    /// Takes over lpBuffer and delivers it to the receiver, without bytes if the read failed.
    CmInt32 ReadData_i(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                       CmUint32 dwLength);
    CmInt32 Sync_i(CmUint32 dwHandle);
    /// Reports the result of a sync for dwHandle, or for 0 a failure as that of a write.
    void PostSynced(CmUint32 dwHandle, CmInt32 lResult);
    /// Reports to the receiver if the free space has fallen below the mark.
    void CheckSpace(CSpaceWatch& aWatch);

    /// The part of ReadData that waits. It also runs on the caller's side, once the R/W thread has
    /// ended or if there is none.
    CmInt32 SyncRead_i(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength);

    /// Posts a status report to the receiver. A failure to post it is traced only.
    void PostFileStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 lResult);
    CCacheFileManager::LinkType GetLinkType() const { return m_LinkType; }

 private:
    void ReportSyncs();
    void PostToCaller(ICmEvent* pEvent);
    CmInt32 ReadInner(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength);
    bool HasThreads() const { return m_pRWThread && m_pCallerThread; }
    bool IsLinkUsable() const;
    CmInt32 OpenResult() const { return m_lOpenResult.load(std::memory_order_acquire); }
    bool IsUsable() const { return IsLinkUsable() && OpenResult() == CACHE_OK; }
    std::uintptr_t ReceiverKey() const {
        return reinterpret_cast<std::uintptr_t>(m_pReceive.Get());
    }
    void DeliverData(unsigned char* lpBuffer, CmUint32 dwLength, const tagDataInfo& aDataInfo);

    CmInt32 PostCopy(const char* lpData, std::size_t nLength, CmUint32 dwOffset);
    template <class MakeData>
    CmInt32 PostWrite(CmUint32 dwOffset, MakeData aMakeData);
    template <class MakeEvent>
    CmInt32 PostRequest(const char* lpEventName, MakeEvent aMakeEvent);
    template <class Operation>
    CmInt32 Bracketed(Operation aOperation);

    CRefPtr<ACmThread> m_pRWThread;
    CRefPtr<ACmThread> m_pCallerThread;
    CRefPtr<IFileOperation> m_pFileOp;
    CRefPtr<IFileOpStatus> m_pReceive;
    const CCacheFileManager::LinkType m_LinkType;

    /// The outcome of the last open. While it is not 0, everything but another open is refused: on
    /// the caller's side as soon as it is known there, and again on the R/W thread, because
    /// requests may have been queued before it was known.
    std::atomic<CmInt32> m_lOpenResult{CACHE_OK};

    bool m_bReportsSyncs = false;  // the R/W thread's

    // The caller's side only.
    CCmString m_strFilePath;
    CRefPtr<CPendingCount> m_pPending;  // the handler's; null unless that has a limit
    int m_bWrite = 1;
};
