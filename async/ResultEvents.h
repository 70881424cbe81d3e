#pragma once

#include <cstdint>

#include "core/FileOpSink.h"
#include "platform/CmEvent.h"

// The result events of asynchronous files. They run on the caller thread, hold a reference to the
// receiving handler and call one of its callbacks. Each event owns its data.

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
