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
/// Made by CCacheFileManager::CreateWriteFileHandler with one reference, the host's, which Destroy
/// gives back. Files and queued results hold further references, so in asynchronous mode it lives
/// until the last result has been delivered. It has no lock: the host drives it from one thread. In
/// asynchronous mode that is the caller thread, on which the callbacks run too. Operations return
/// codes of CmResult.h and throw nothing.
///
/// Order of calls: Initialize; SetHomeDir if wanted; for each file OpenWritingFile, WriteData and
/// FlushData, CloseFile; Destroy.
///
/// Appended bytes are gathered into blocks of 32,768. A block is accepted when it leaves the
/// gathering buffer: when that is full, flushed or closed, or its handler is destroyed. Accepted
/// bytes reach their file, or their failure is reported or traced. See docs/recording.md.
class CACHEFILE_API CWriteFileHandler : public IFileOpStatus {
 public:
    /// Called by the manager. Never fails.
    CWriteFileHandler(CmUint32 dwRecordID, int bAsync);
    /// A copy has the same fields, the reference count included, and shares the open files. The
    /// only operations here that throw std::bad_alloc.
    CWriteFileHandler(const CWriteFileHandler&);
    CWriteFileHandler& operator=(const CWriteFileHandler&);
    ~CWriteFileHandler() override;

    /// Sets the sink (not owned, may be null; it has to outlive the handler's Destroy) and appends
    /// the manager's home directory, the record identifier and a backslash to the handler's
    /// directory. 0, or CACHE_ERR_OUT_OF_MEMORY with the directory as it was.
    CmInt32 Initialize(IFileOpSink* pSink);

    /// Replaces the handler's directory for files opened from now on; a backslash is appended if
    /// it ends without one. An empty one means the process's current directory.
    void SetHomeDir(const CCmString& strHomeDir);

    /// The handler's own directory; a change through the reference is taken as it is.
    CCmString& GetTempHomeDir();

    /// Opens the file strFileName of the handler's directory for writing: created with its missing
    /// directories, or emptied. On success dwHandle names it until it is closed; otherwise it is 0.
    /// In asynchronous mode 0 means that the open was queued; its outcome is reported as Op_Open.
    /// 4001, 4003, 4004, 4005, 4006, 4012: why the file could not be opened. 4010: asynchronous
    /// mode without an attached thread or worker. 4011: no memory.
    CmInt32 OpenWritingFile(const CCmString& strFileName, CmUint32& dwHandle);

    /// Writes dwLength bytes of lpData, which stay the host's, at dwOffset (below 2^31), or at the
    /// end for 0xFFFFFFFF. An append usually only gathers the bytes; a positioned write first
    /// passes the gathered bytes on. In asynchronous mode a later failure is reported as Op_Write.
    /// 4009: lpData is null. 4010: no such handle, or the worker has been stopped. 4003, 4006: a
    /// write that this call caused failed, or the file's open failed. 4013: the limit of pending
    /// bytes (CCacheFileManager::SetPendingLimit) refuses the piece at the moment. 4011: no memory,
    /// or a piece above that limit. After 4011 and 4013 nothing of the piece has been taken.
    CmInt32 WriteData(CmUint32 dwHandle, const unsigned char* lpData, CmUint32 dwLength,
                      CmUint32 dwOffset);

    /// Limits the pending bytes of this handler as CCacheFileManager::SetPendingLimit limits those
    /// of the process: WriteData is refused in the same way by either. So a handler with much data
    /// can be kept from taking the whole limit of the process. What was pending before the first
    /// call does not count. 0, or CACHE_ERR_OUT_OF_MEMORY with the limit as it was.
    CmInt32 SetPendingLimit(std::uint64_t qwBytes);

    /// Passes the gathered bytes on. Returns nothing; a failure is traced and counted
    /// (CCacheFileManager::GetLostBytes), and in asynchronous mode reported as Op_Write.
    void FlushData(CmUint32 dwHandle);

    /// Passes the gathered bytes on and closes the file. On success the handle is no longer valid;
    /// on failure it stays valid, for another try or for Destroy. 4010: no such handle, or the
    /// worker has been stopped. A file whose open has failed returns the code of the open. In
    /// asynchronous mode 0 means that the close was queued, and a failure is reported as Op_Close.
    CmInt32 CloseFile(CmUint32 dwHandle);

    /// Closes all files in the order of opening and gives back the host's reference; the host does
    /// not use the handler any more. From its start on the sink is not called. Always 0.
    CmInt32 Destroy();

    /// Called by the files: stores the report and passes it on to the sink.
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    /// This handler reads nothing: traces an assertion and leaves the buffer alone.
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;
    /// The result of the last report, which may be a success; the link does not matter.
    CmInt32 GetFileStatus(CCacheFileManager::LinkType aLinkType) override;

    /// Registers for further callbacks; null removes it. Not owned: it has to outlive the handler's
    /// Destroy, after which it is not called.
    void SetSafetySink(IFileSafetySink* pSink) { m_pSafetySink = pSink; }

    /// Passes on what is gathered and syncs the file: everything written so far is on the disk
    /// then, with the file's name and its directories. It needs no sync interval. A file that was
    /// opened without one has to be found by its path for that, or the result is 4006.
    /// Synchronous mode: returns the result. 0: synced. 4003, 4006: what was gathered could not be
    /// written, or the sync failed; or an earlier sync has failed whose code no call has returned.
    /// Asynchronous mode: 0 means queued, and the result comes as OnFileSynced. To a host without a
    /// safety sink only a failure is reported, as Op_Write.
    /// After a failed sync the bytes since the last good one count as lost. 4010: no such handle,
    /// or the worker has been stopped. 4011: no memory.
    CmInt32 SyncFile(CmUint32 dwHandle);

    /// Fills aLosses with what became of the bytes of an open file. Gathered bytes are in none of
    /// the numbers. In asynchronous mode the numbers may change during the call. 0; 4010: no such
    /// handle; 4011: no memory. On failure aLosses stays as it was.
    CmInt32 GetFileLosses(CmUint32 dwHandle, tagFileLosses& aLosses);

    /// From now on the safety sink's OnLowSpace is called when the free space of the file system
    /// to which this handler writes is below qwBytes; 0 ends that. If it is already below, it is
    /// reported once more, also if an earlier mark was reported. The free space is checked by
    /// writes that reach the worker, in synchronous mode by every WriteData, at most once a second.
    /// Returns 0, or 4011 if there is no memory.
    CmInt32 SetLowSpaceMark(std::uint64_t qwBytes);

    /// For the files: pass on to the safety sink.
    void OnFileSynced(CmUint32 dwHandle, CmInt32 lResult) override;
    void OnLowSpace(std::uint64_t qwFreeBytes) override;
    CSpaceWatch* GetSpaceWatch() override;

 protected:
    /// Finds an open file: 0, or 10011 with pFile null. No reference is taken.
    CmInt32 Handle2Pointer(CmUint32 dwHandle, IFileOperation*& pFile);
    /// Forgets an open file: 0 or 10011.
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
