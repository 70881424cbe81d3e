#pragma once

#include "core/CacheFileManager.h"
#include "core/DataInfo.h"
#include "platform/CmReference.h"
#include "platform/CmResult.h"

class CSpaceWatch;

/// The host's callbacks. The host implements this interface, passes an object to a handler's
/// Initialize and keeps the object until the handler's Destroy has returned.
///
/// In asynchronous mode every call is made on the caller thread (CmCallerThread.h). In synchronous
/// mode it is made inside the read that caused it. No lock of the library is held. A callback may
/// call any operation, including Destroy of its own handler and a shutdown.
class IFileOpSink {
 public:
    /// The result of an asynchronous operation. It is called for every open (aResult is 0 on
    /// success), and for a close, read or write that failed on the worker thread. It is not called
    /// for an operation whose own call returned an error, and never in synchronous mode.
    virtual void OnFileOpStatus(CCacheFileManager::LinkType aLinkType,
                                CCacheFileManager::OpType aOpType, CmInt32 aResult) = 0;

    /// The bytes of a read. lpData is the buffer that was passed to the read (from array new). The
    /// receiver now owns it and frees it with array delete. dwLength is the number of bytes read:
    /// fewer than requested at the end of the file, and 0 after it. It is also 0 if an asynchronous
    /// read failed, which OnFileOpStatus then reports with Op_Read. aDataInfo is that of the
    /// request and is valid during the call.
    virtual void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                             const tagDataInfo& aDataInfo) = 0;

 protected:
    ~IFileOpSink() = default;
};

/// Further callbacks, for hosts that register for them (CWriteFileHandler::SetSafetySink). The
/// rules of IFileOpSink apply: the caller thread, no lock, and any call is allowed inside.
class IFileSafetySink {
 public:
    /// The result of a SyncFile in asynchronous mode that returned 0. lResult is 0 if everything
    /// that was written to the file before is on the disk, otherwise the code of the failure.
    virtual void OnFileSynced(CmUint32 dwHandle, CmInt32 lResult) = 0;

    /// The free space of the recording's file system has fallen below the mark. Called once, and
    /// again only after the free space was at the mark or above it, or after the mark was set
    /// again. In synchronous mode it is called at the end of the WriteData that has queried the
    /// free space.
    virtual void OnLowSpace(std::uint64_t qwFreeBytes) = 0;

 protected:
    ~IFileSafetySink() = default;
};

/// Receives the results of asynchronous files. The handlers implement it. It has a reference count,
/// because proxies and queued results use it until the last result has been delivered.
class CACHEFILE_API IFileOpStatus : public IFileOpSink,
                                    public CCmReferenceControlT<CCmMutexThread> {
 public:
    /// The last status that was received for a link.
    virtual CmInt32 GetFileStatus(CCacheFileManager::LinkType aLinkType) = 0;

    ~IFileOpStatus() override;

    // The operations above keep their order; new ones are added below. A receiver that does not
    // sync ignores these.

    virtual void OnFileSynced(CmUint32 /*dwHandle*/, CmInt32 /*lResult*/) {}
    virtual void OnLowSpace(std::uint64_t /*qwFreeBytes*/) {}
    /// The object that watches the free space for this receiver, or null.
    virtual CSpaceWatch* GetSpaceWatch() { return nullptr; }
};
