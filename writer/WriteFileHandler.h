#pragma once

#include <cstdint>
#include <vector>

#include "core/FileLosses.h"
#include "core/FileOpSink.h"
#include "platform/CmExport.h"

class CPendingCount;
class IFileOperation;
namespace cachefile_internal {
struct tagOpenFile;
}

/// Writes the record files of one recording.
///
/// CCacheFileManager::CreateWriteFileHandler creates it with one reference, which the host owns and
/// Destroy releases. Files and queued results hold further references, so in asynchronous mode it
/// exists until the last result has been delivered. It has no lock: the host calls it from one
/// thread. In asynchronous mode this is the caller thread, on which the callbacks run too.
/// Operations return codes of CmResult.h and do not throw.
///
/// Order of calls: Initialize; SetHomeDir if another directory is needed; for each file
/// OpenWritingFile, WriteData and FlushData, CloseFile; Destroy.
///
/// Appended bytes are gathered into blocks of 32,768. A block is accepted when it leaves the
/// gathering buffer. This happens when the buffer is full, flushed or closed, and when the handler
/// is destroyed. Accepted bytes are written to their file, or the failure is reported or traced.
/// docs/recording.md has the details.
class CACHEFILE_API CWriteFileHandler : public IFileOpStatus {
 public:
    /// For the manager. Never fails.
    CWriteFileHandler(CmUint32 dwRecordID, int bAsync);
    /// A copy has the same fields, the reference count included, and shares the open files. Only
    /// these two operations throw std::bad_alloc.
    CWriteFileHandler(const CWriteFileHandler&);
    CWriteFileHandler& operator=(const CWriteFileHandler&);
    ~CWriteFileHandler() override;

    /// Sets the sink and appends the manager's home directory, the record identifier and a
    /// backslash to the handler's directory. The sink may be null. The host owns it and keeps it
    /// until Destroy has returned. Returns 0, or CACHE_ERR_OUT_OF_MEMORY with the directory
    /// unchanged.
    CmInt32 Initialize(IFileOpSink* pSink);

    /// Replaces the handler's directory for files that are opened later. A backslash is appended if
    /// it does not end with one. An empty directory means the current directory of the process.
    void SetHomeDir(const CCmString& strHomeDir);

    /// The handler's directory. A change through the reference is not checked, and no backslash is
    /// appended.
    CCmString& GetTempHomeDir();

    /// Opens the file strFileName in the handler's directory for writing. Creates it, with its
    /// missing directories, or empties an existing one. On success dwHandle identifies the file
    /// until it is closed; on failure it is 0. In asynchronous mode a result of 0 means that the
    /// open is queued, and its result is reported as Op_Open.
    /// 4001, 4003, 4004, 4005, 4006, 4012: why the file could not be opened. 4010: asynchronous
    /// mode without a caller thread or a worker. 4011: out of memory.
    CmInt32 OpenWritingFile(const CCmString& strFileName, CmUint32& dwHandle);

    /// Writes dwLength bytes at dwOffset (below 2^31), or at the end of the file if dwOffset is
    /// 0xFFFFFFFF. lpData is copied during the call. An append usually only gathers the bytes. A
    /// write at an offset first passes the gathered bytes on. In asynchronous mode a later failure
    /// is reported as Op_Write.
    /// 4009: lpData is null. 4010: no such handle, or the worker has been stopped. 4003, 4006: a
    /// write in this call failed, or the open of the file failed. 4013: a limit of pending bytes
    /// (CCacheFileManager::SetPendingLimit) refuses the bytes now, but may accept them later. 4011:
    /// out of memory, or more bytes than the limit allows at all. After 4011 and 4013 none of the
    /// bytes were taken.
    CmInt32 WriteData(CmUint32 dwHandle, const unsigned char* lpData, CmUint32 dwLength,
                      CmUint32 dwOffset);

    /// Limits the pending bytes of this handler, as CCacheFileManager::SetPendingLimit limits those
    /// of the process. Both limits refuse a WriteData in the same way. So a handler with much data
    /// cannot use up the limit of the process. Bytes that were pending before the first call do not
    /// count. Returns 0, or CACHE_ERR_OUT_OF_MEMORY with the limit unchanged.
    CmInt32 SetPendingLimit(std::uint64_t qwBytes);

    /// Passes the gathered bytes on. A failure is traced and counted
    /// (CCacheFileManager::GetLostBytes), and in asynchronous mode reported as Op_Write.
    void FlushData(CmUint32 dwHandle);

    /// Passes the gathered bytes on and closes the file. On success the handle becomes invalid. On
    /// failure it stays valid, and the host may try again or destroy the handler. 4010: no such
    /// handle, or the worker has been stopped. If the open of the file has failed, returns the code
    /// of the open. In asynchronous mode 0 means that the close is queued, and a failure is
    /// reported as Op_Close.
    CmInt32 CloseFile(CmUint32 dwHandle);

    /// Closes all files in the order of opening and releases the host's reference. The host must
    /// not use the handler afterwards. The sinks are not called after Destroy has begun. Always
    /// returns 0.
    CmInt32 Destroy();

    /// Called by the files. Stores the report and passes it on to the sink.
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    /// Traces an assertion and does not use the buffer, because this handler reads nothing.
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;
    /// The result of the last report, which may be a success. The argument is not used.
    CmInt32 GetFileStatus(CCacheFileManager::LinkType aLinkType) override;

    /// Sets the sink of further callbacks; null removes it. The host owns the sink and keeps it
    /// until Destroy has returned.
    void SetSafetySink(IFileSafetySink* pSink) { m_pSafetySink = pSink; }

    /// Passes the gathered bytes on and syncs the file. After a successful sync everything written
    /// so far is on the disk, with the file's name and its directories. No sync interval is needed.
    /// If the file was opened without one, it must still have its path, or the result is 4006.
    /// In synchronous mode it returns the result. 0: synced. 4003, 4006: the gathered bytes could
    /// not be written, or the sync failed, or an earlier sync failed and no call has returned its
    /// code yet. In asynchronous mode 0 means that the sync is queued, and OnFileSynced reports the
    /// result. Without a safety sink only a failure is reported, as Op_Write.
    /// After a failed sync the bytes since the last successful one count as lost. 4010: no such
    /// handle, or the worker has been stopped. 4011: out of memory.
    CmInt32 SyncFile(CmUint32 dwHandle);

    /// Fills aLosses with the lost, pending and unsynced bytes of an open file. Gathered bytes are
    /// not included. In asynchronous mode the numbers may change during the call. 4010: no such
    /// handle. 4011: out of memory. On failure aLosses is unchanged.
    CmInt32 GetFileLosses(CmUint32 dwHandle, tagFileLosses& aLosses);

    /// Lets OnLowSpace of the safety sink be called when the file system of this handler's files
    /// has less than qwBytes of free space. 0 ends this. If the free space is already below the
    /// mark, it is reported once more, also after a report of an earlier mark. The free space is
    /// queried by writes on the worker, or in synchronous mode by WriteData, at most once per
    /// second. Returns 0 or 4011.
    CmInt32 SetLowSpaceMark(std::uint64_t qwBytes);

    /// Called by the files. They pass the call on to the safety sink.
    void OnFileSynced(CmUint32 dwHandle, CmInt32 lResult) override;
    void OnLowSpace(std::uint64_t qwFreeBytes) override;
    CSpaceWatch* GetSpaceWatch() override;

 protected:
    /// Finds an open file. Returns 0, or 10011 with pFile null. Adds no reference.
    CmInt32 Handle2Pointer(CmUint32 dwHandle, IFileOperation*& pFile);
    /// Removes an open file from the list. Returns 0 or 10011.
    CmInt32 RemoveHandle(CmUint32 dwHandle);

 private:
    CmUint32 m_dwRecordID;
    int m_bAsync;
    IFileOpSink* m_pSink = nullptr;
    IFileSafetySink* m_pSafetySink = nullptr;
    CRefPtr<CSpaceWatch> m_pSpaceWatch;  // null until a mark is set
    CCacheFileManager::LinkType m_LinkType{};
    CCacheFileManager::OpType m_OpType{};
    CmInt32 m_lStatus = 0;
    CCmString m_strHomeDir;
    std::vector<cachefile_internal::tagOpenFile> m_vecWriteFiles;
    CRefPtr<CPendingCount> m_pPending;  // null until a limit is set
};
