#pragma once

#include <optional>

#include "async/FileThreadProxy.h"
#include "core/PendingBytes.h"
#include "fileop/FileLedger.h"
#include "fileop/SpaceWatch.h"
#include "platform/CmEvent.h"

/// The events of the proxy. Requests run on the R/W thread, hold a reference on the proxy and call
/// its operations for them. Results run on the caller thread and hold a reference on the receiving
/// handler. Each event owns what it was given, except for CSyncReadEvent, whose caller waits.

/// Opens (bOpen non-zero) or closes the file. A relative path begins in the directory that was
/// current when the event was made. Making it may throw std::bad_alloc.
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

/// A read whose result is delivered. It does not own the buffer while it is queued, because a
/// refused request leaves the buffer with the caller. Firing passes the buffer on or frees it.
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

/// A write. Its bytes count as pending as long as it exists; its memory goes back to CBlockStore.
class CWriteEvent final : public ICmEvent {
 public:
    CWriteEvent(CFileThreadProxy* pAsyncFileOp, CmUint32 dwOffset, CCmString strData,
                CPendingCount* pPending);
    ~CWriteEvent() override;
    CmInt32 OnEventFire() override;

 private:
    const CRefPtr<CFileThreadProxy> m_pAsyncFileOp;
    const CmUint32 m_dwFileOffset;
    const CPendingBytes m_pending;  // before m_strData: counted as long as that exists
    CCmString m_strData;
    const CRefPtr<CFileLedger> m_pLedger;      // null if the file has none
    const CRefPtr<CSpaceWatch> m_pSpaceWatch;  // null if nothing is watched
    bool m_bFired = false;
};

/// Syncs the file. The result goes to the handle, or a failure is reported as a write's for 0.
class CSyncFileEvent final : public ICmEvent {
 public:
    CSyncFileEvent(CFileThreadProxy* pAsyncFileOp, CmUint32 dwHandle)
        : ICmEvent(0), m_pAsyncFileOp(pAsyncFileOp), m_dwHandle(dwHandle) {}
    CmInt32 OnEventFire() override;

 private:
    const CRefPtr<CFileThreadProxy> m_pAsyncFileOp;
    const CmUint32 m_dwHandle;
};

/// Brings the result of a sync to the handler.
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

/// Brings the handler the free space that is below its mark.
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

/// A read that its caller waits for. Length and result are the caller's variables; the result stays
/// empty if the event is refused.
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

/// Delivers the bytes of a read. Owns the buffer (from array new) until it fires, which passes the
/// buffer to the receiver. Frees it if it never fires.
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
