#pragma once

#include <optional>

#include "async/FileThreadProxy.h"
#include "core/PendingBytes.h"
#include "fileop/FileLedger.h"
#include "fileop/SpaceWatch.h"
#include "platform/CmEvent.h"

/// The events of the proxy. Requests run on the R/W thread, hold a reference to the proxy and call
/// its operations. Results run on the caller thread and hold a reference to the receiving handler.
/// Each event owns its data, except CSyncReadEvent, whose caller waits.

/// Opens the file (bOpen is non-zero) or closes it. A relative path is relative to the directory
/// that was current when the event was created. The constructor may throw std::bad_alloc.
class COpenCloseEvent final : public ICmEvent {
 public:
    COpenCloseEvent(CFileThreadProxy* pAsyncFileOp, const CCmString& strFilePath, int bOpen,
                    int bWrite);
    CmInt32 OnEventFire() override;

 private:
    CmInt32 FireOpen();
    CmInt32 FireClose();

    const CRefPtr<CFileThreadProxy> m_pAsyncFileOp;
    const int m_bOpen;
    const int m_bWrite;
    const CCmString m_strFilePath;
    const CmPlace m_place;
};

/// A read whose data is delivered later. It does not own the buffer while it is queued, because the
/// caller keeps the buffer if the request is refused. When it runs, it passes the buffer on or
/// frees it.
class CReadEvent final : public ICmEvent {
 public:
    CReadEvent(CFileThreadProxy* pAsyncFileOp, unsigned char* lpBuffer, CmUint32 dwLength,
               CmUint32 dwOffset, const tagDataInfo& aDataInfo);
    CmInt32 OnEventFire() override;

 private:
    const CRefPtr<CFileThreadProxy> m_pAsyncFileOp;
    unsigned char* const m_lpBuffer;
    const CmUint32 m_dwLength;
    const CmUint32 m_dwFileOffset;
    const tagDataInfo m_DataInfo;
};

/// A write. Its bytes count as pending while it exists. It returns its memory to CBlockStore.
class CWriteEvent final : public ICmEvent {
 public:
    CWriteEvent(CFileThreadProxy* pAsyncFileOp, CmUint32 dwOffset, CCmString strData,
                CPendingCount* pPending);
    ~CWriteEvent() override;
    CmInt32 OnEventFire() override;

 private:
    const CRefPtr<CFileThreadProxy> m_pAsyncFileOp;
    const CmUint32 m_dwFileOffset;
    const CPendingBytes
        m_pending;  // before m_strData, so that the bytes count until they are freed
    CCmString m_strData;
    const CRefPtr<CFileLedger> m_pLedger;      // null if the file has none
    const CRefPtr<CSpaceWatch> m_pSpaceWatch;  // null if nothing is watched
    bool m_bFired = false;
};

/// Syncs the file and reports the result for the handle. If the handle is 0, reports only a
/// failure, as that of a write.
class CSyncFileEvent final : public ICmEvent {
 public:
    CSyncFileEvent(CFileThreadProxy* pAsyncFileOp, CmUint32 dwHandle)
        : ICmEvent(0), m_pAsyncFileOp(pAsyncFileOp), m_dwHandle(dwHandle) {}
    CmInt32 OnEventFire() override;

 private:
    const CRefPtr<CFileThreadProxy> m_pAsyncFileOp;
    const CmUint32 m_dwHandle;
};

/// Reports the result of a sync to the handler.
class CFileSyncedEvent final : public ICmEvent {
 public:
    CFileSyncedEvent(IFileOpStatus* pReceive, CmUint32 dwHandle, CmInt32 lResult)
        : ICmEvent(0), m_pReceive(pReceive), m_dwHandle(dwHandle), m_lResult(lResult) {}
    CmInt32 OnEventFire() override {
        m_pReceive->OnFileSynced(m_dwHandle, m_lResult);
        return CACHE_OK;
    }

 private:
    const CRefPtr<IFileOpStatus> m_pReceive;
    const CmUint32 m_dwHandle;
    const CmInt32 m_lResult;
};

/// Reports to the handler that the free space is below its mark.
class CLowSpaceEvent final : public ICmEvent {
 public:
    CLowSpaceEvent(IFileOpStatus* pReceive, std::uint64_t qwFree)
        : ICmEvent(0), m_pReceive(pReceive), m_qwFree(qwFree) {}
    CmInt32 OnEventFire() override {
        m_pReceive->OnLowSpace(m_qwFree);
        return CACHE_OK;
    }

 private:
    const CRefPtr<IFileOpStatus> m_pReceive;
    const std::uint64_t m_qwFree;
};

/// A read for which the caller waits. Length and result are variables of the caller. The result
/// stays empty if the event is refused.
class CSyncReadEvent final : public ICmEvent {
 public:
    CSyncReadEvent(CFileThreadProxy* pAsyncFileOp, unsigned char* lpBuffer, CmUint32 dwOffset,
                   CmUint32& dwLength, std::optional<CmInt32>& aResult);
    CmInt32 OnEventFire() override;

 private:
    const CRefPtr<CFileThreadProxy> m_pAsyncFileOp;
    unsigned char* const m_lpBuffer;
    const CmUint32 m_dwFileOffset;
    CmUint32& m_dwLength;
    std::optional<CmInt32>& m_result;
};

/// Delivers the bytes of a read. It owns the buffer (from array new) until it runs and passes the
/// buffer to the receiver. If it never runs, it frees the buffer.
class CFileDataEvent final : public ICmEvent {
 public:
    CFileDataEvent(IFileOpStatus* pReceive, unsigned char* lpBuffer, CmUint32 dwLength,
                   const tagDataInfo& aDataInfo);
    ~CFileDataEvent() override;
    CmInt32 OnEventFire() override;

 private:
    const CRefPtr<IFileOpStatus> m_pReceive;
    unsigned char* m_lpBuffer;
    const CmUint32 m_dwLength;
    const tagDataInfo m_DataInfo;
};

namespace cachefile_internal {

/// The contents of a status report.
struct tagFileStatus {
    CCacheFileManager::LinkType aLinkType;
    CCacheFileManager::OpType aOpType;
    CmInt32 lResult;
};

}  // namespace cachefile_internal

using cachefile_internal::tagFileStatus;

/// Delivers a status report.
class CFileStatusEvent final : public ICmEvent {
 public:
    CFileStatusEvent(IFileOpStatus* pReceive, const tagFileStatus& aStatus);
    CmInt32 OnEventFire() override;

 private:
    const CRefPtr<IFileOpStatus> m_pReceive;
    const CCacheFileManager::LinkType m_LinkType;
    const CCacheFileManager::OpType m_OpType;
    const CmInt32 m_lResult;
};
