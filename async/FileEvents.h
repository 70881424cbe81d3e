#pragma once

#include <new>
#include <optional>

#include "async/FileThreadProxy.h"
#include "async/RequestMemory.h"
#include "core/PendingBytes.h"
#include "fileop/FileLedger.h"
#include "fileop/SpaceWatch.h"
#include "platform/CmEvent.h"

// The request events of the proxy. They run on the R/W thread, hold a reference to the proxy and
// call its operations. Each event owns its data, except CSyncReadEvent, whose caller waits.

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

/// A write. Its bytes count as pending while it exists. It returns the memory of its bytes to
/// CBlockStore.
///
/// When an append runs, it also writes the bytes of the appends to the same file that run directly
/// after it, because one system call for several blocks takes less time. These events store their
/// results, and run later as if they had written the bytes themselves.
class CWriteEvent final : public ICmEvent {
 public:
    CWriteEvent(CFileThreadProxy* pAsyncFileOp, CmUint32 dwOffset, CCmString strData,
                CPendingCount* pPending);
    ~CWriteEvent() override;
    CmInt32 OnEventFire() override;

    static void* operator new(std::size_t nSize, const std::nothrow_t&) noexcept {
        return CRequestMemory::Take(nSize);
    }
    static void operator delete(void* lpMemory, const std::nothrow_t&) noexcept {
        CRequestMemory::Give(lpMemory);
    }
    // NOLINTNEXTLINE(*-new-delete-overloads,cert-dcl54-cpp): only the operator above allocates
    static void operator delete(void* lpMemory) noexcept { CRequestMemory::Give(lpMemory); }

 private:
    bool IsAppendTo(const CFileThreadProxy* pFile) const;
    CmInt32 Write();
    void AppendWithFollowing();

    const CRefPtr<CFileThreadProxy> m_pAsyncFileOp;
    const CmUint32 m_dwFileOffset;
    const CPendingBytes
        m_pending;  // before m_strData, so that the bytes count until they are freed
    CCmString m_strData;
    CFileLedger* const m_pLedger;  // of the file, which m_pAsyncFileOp keeps; null if it has none
    const CRefPtr<CSpaceWatch> m_pSpaceWatch;  // null if nothing is watched
    bool m_bFired = false;
    std::optional<CmInt32> m_result;  // if an earlier append has written the bytes
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
