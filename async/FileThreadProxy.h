#pragma once

#include <atomic>
#include <cstdint>

#include "core/FileOpSink.h"
#include "core/PendingBytes.h"
#include "fileop/FileOperation.h"
#include "platform/CmThread.h"

class CResultPoster;

/// Queues the operations of a file for the R/W thread, and reports their results to a handler on
/// the caller thread.
///
/// Owned by the previous link and by every queued request, so releasing it cancels no request. It
/// holds a reference to the receiving handler.
///
/// The caller's side calls the operations of IFileOperation. The request events call the operations
/// after them on the R/W thread, one at a time and in the order of the requests. Both sides use
/// m_lOpenResult, which is an atomic. Each of the other members is constant or used on one side.
///
/// A call returns 0 if its request is queued. The result follows as a callback: for an open always,
/// for a close or a write only if it failed, and for a read as its data, followed by a status if
/// the read failed.
class CFileThreadProxy final : public IFileOperation {
 public:
    /// Adds a reference to both threads, to pActualFile, which is the next link, and to pReceive.
    /// If one of the four is null, an assertion is traced and the object is created anyway. Without
    /// a thread all operations except a synchronous read return CACHE_ERR_INVALID_STATE. Without a
    /// file the operations fail with that code on the R/W thread. Without a receiver nothing is
    /// reported.
    CFileThreadProxy(ACmThread* pRWThread, ACmThread* pCallerThread, IFileOperation* pActualFile,
                     IFileOpStatus* pReceive, CCacheFileManager::LinkType aLinkType);
    ~CFileThreadProxy() override;

    /// A relative path is relative to the current directory at the time of this call, even if the
    /// process changes its directory before the file is opened. If the current directory cannot be
    /// determined, Op_Open reports the code.
    CmInt32 Open(const CCmString& strPath, int bWrite) override;
    CmInt32 Close() override;
    CmInt32 WriteData(const CCmString& strData, CmUint32 dwOffset) override;

    /// Waits until the R/W thread has done everything that was queued before, and has read.
    CmInt32 ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) override;

    CmInt32 AsyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                          CmUint32& dwLength) override;
    const CCmString& GetFileName() override { return m_strFilePath; }

    /// Does nothing, because the local file flushes after every write.
    void Flush() override {}

    CmInt32 WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) override;
    CmInt32 GiveData(CCmString&& strData, CmUint32 dwOffset) override;

    /// Returns qwLength, or 0 if WriteData would fail.
    std::uint64_t BytesToQueue(std::uint64_t qwLength, CmUint32 dwOffset) override;

    void CountPendingIn(CPendingCount* pCount) override { m_pPending = pCount; }
    tagFileThreads GetThreads() override { return {m_pRWThread.Get(), m_pCallerThread.Get()}; }

    /// Called on the R/W thread only.
    CmInt32 GetSize(std::uint64_t& qwSize) override;

    CmInt32 SendToReader(ICmEvent* pEvent) override;

    /// Queues the sync. OnFileSynced of the receiver reports the result for dwHandle.
    CmInt32 Sync(CmUint32 dwHandle) override;
    CFileLedger* Ledger() override { return m_pFileOp ? m_pFileOp->Ledger() : nullptr; }
    /// Called on the R/W thread only.
    CmInt32 GetFreeSpace(std::uint64_t& qwBytes) override;

    /// The object that watches the free space for the receiver, or null. For the write event.
    CSpaceWatch* GetSpaceWatch() { return m_pReceive ? m_pReceive->GetSpaceWatch() : nullptr; }

    // The request events (FileEvents.h) call these, on the R/W thread only. Each returns the code
    // that its event reports.

    /// Opens the next link and stores the result for both sides.
    CmInt32 Open_i(const CCmString& strPath, int bWrite, const CmPlace& aPlace);
    CmInt32 Close_i();
    CmInt32 WriteData_i(const CCmString& strData, CmUint32 dwOffset);
    /// AppendBlocks of the next link. Tries no block if the file is not usable.
    tagAppended AppendBlocks_i(const CmFile::tagBlock* pBlocks, std::size_t nCount);
    /// For a write that was done together with an earlier one: returns its result.
    CmInt32 WriteData_i(CmInt32 lResult);

    /// Owns lpBuffer and delivers it to the receiver, with no bytes if the read failed.
    CmInt32 ReadData_i(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                       CmUint32 dwLength);
    CmInt32 Sync_i(CmUint32 dwHandle);
    /// Reports the result of a sync for dwHandle. If dwHandle is 0, reports only a failure, as that
    /// of a write.
    void PostSynced(CmUint32 dwHandle, CmInt32 lResult);
    /// Reports to the receiver if the free space has fallen below the mark.
    void CheckSpace(CSpaceWatch& aWatch);

    /// The read of ReadData. It runs on the caller's side if there is no R/W thread or the thread
    /// has ended.
    CmInt32 SyncRead_i(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength);

    /// Posts a status report to the receiver. If this fails, it is only traced.
    void PostFileStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 lResult);
    CCacheFileManager::LinkType GetLinkType() const { return m_LinkType; }

 private:
    // Texts of the checks.
    static constexpr char c_szThreads[] = "m_pRWThread && m_pCallerThread";
    static constexpr char c_szFile[] = "m_pFileOp.Get( )";

    void ReportSyncs();
    CResultPoster Results() const;
    CmInt32 ReadInner(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength);
    bool HasThreads() const { return m_pRWThread && m_pCallerThread; }
    bool IsLinkUsable() const;
    CmInt32 OpenResult() const { return m_lOpenResult.load(std::memory_order_acquire); }
    bool IsUsable() const { return IsLinkUsable() && OpenResult() == CACHE_OK; }
    std::uintptr_t ReceiverKey() const {
        return reinterpret_cast<std::uintptr_t>(m_pReceive.Get());
    }

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

    /// The result of the last open. While it is not 0, all operations except another open fail. It
    /// is checked on the caller's side, and again on the R/W thread, because requests may have been
    /// queued before the result was known. Acquire and release are enough: what else a request
    /// needs goes through the queue, under its mutex.
    std::atomic<CmInt32> m_lOpenResult{CACHE_OK};

    bool m_bReportsSyncs = false;  // used on the R/W thread

    // Used on the caller's side only.
    CCmString m_strFilePath;
    CRefPtr<CPendingCount> m_pPending;  // the handler's; null unless that has a limit
    int m_bWrite = 1;
};
