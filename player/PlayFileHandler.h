#pragma once

#include <memory>
#include <vector>

#include "core/FileOpSink.h"
#include "platform/CmExport.h"

class CDownloadFileHandler;
class IFileOperation;
namespace cachefile_internal {
struct tagPlayedFiles;
}

/// Reads one recording back: from record files that the host opens by name and describes, or from
/// one downloaded container.
///
/// CCacheFileManager::CreatePlayFileHandler creates it with one reference, which the host owns and
/// Destroy releases. Files and queued results hold further references, so in asynchronous mode it
/// exists until the last result has been delivered. It has no lock: the host calls it from one
/// thread. In asynchronous mode this is the caller thread, on which the callbacks run too.
/// Operations return codes of CmResult.h and do not throw.
///
/// Order of calls: Initialize; SetHomeDir if another directory is needed; OpenRecordFile for each
/// file, or OpenDownloadedFile; reads and writes; CloseAllRecordFiles; Destroy. docs/playing.md
/// describes who owns the buffers.
class CACHEFILE_API CPlayFileHandler : public IFileOpStatus {
 public:
    /// For the manager. Never fails.
    CPlayFileHandler(CmUint32 dwRecordID, int bDownload, int bAsync);
    ~CPlayFileHandler() override;
    CPlayFileHandler(const CPlayFileHandler&) = delete;
    CPlayFileHandler& operator=(const CPlayFileHandler&) = delete;

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

    /// Opens the file strFileName in the handler's directory. Requests that match aFileDescriber
    /// then use this file; if several files match, the one that was opened first is used. If bWrite
    /// is non-zero, creates or empties the file, and WriteData may write to it. In asynchronous
    /// mode 0 means that the open is queued, and its result is reported as Op_Open. 4010: a
    /// container is open. Other codes: why the file could not be opened.
    CmInt32 OpenRecordFile(const CCmString& strFileName, const tagFileDescriber& aFileDescriber,
                           int bWrite);

    /// Opens a downloaded container by its full path (UTF-8) and lists its streams in the order of
    /// its index. In asynchronous mode it waits for the worker thread, and Op_Open is reported
    /// later. 4010: the handler was created without bDownload. 4008: this was called before,
    /// successfully or not. 4002: not a container, or a container that is cut off; the list then
    /// has the streams before the damage, which can be read. 4011: out of memory, or more than
    /// 1,048,576 streams.
    CmInt32 OpenDownloadedFile(const CCmString& strFilePath,
                               std::vector<tagFileDescriber>& vecFileDescriber);

    /// Closes all files but keeps their list, so later reads return 4007 (not open). In
    /// asynchronous mode such a read calls OnDataReady with no bytes and then reports 4007 as
    /// Op_Read. Always returns 0; in asynchronous mode a failure is reported as Op_Close.
    CmInt32 CloseAllRecordFiles();

    /// Closes all files and releases the host's reference. The host must not use the handler
    /// afterwards. After it returns, the sink is not called, and reads that are still queued free
    /// their buffers. If the handler was created with both bDownload and bAsync, this also stops
    /// the worker thread of the process and waits until the thread has done everything that was
    /// queued. Files that other handlers opened before then return 4010 for all operations that
    /// need the worker. Always returns 0.
    CmInt32 Destroy();

    /// The CB time stamp and the file version of the recording: those of the open container, or
    /// those of the first block that was written at offset 0 (see WriteData). 0 until known.
    CmUint32 GetCBTimeStamp() const;
    CmUint32 GetFileVersion() const;

    /// Writes dwLength bytes to the file that aDataInfo selects, at dwOffset (below 2^31), or at
    /// the end of the file if dwOffset is 0xFFFFFFFF. lpData is copied during the call. Time stamp
    /// and file version are read from blocks of 72 bytes or more at offset 0, except those of data
    /// type 5, until the time stamp is not 0.
    /// 4009: lpData is null and dwLength is not 0. 4010: no such file, the file was opened for
    /// reading, or a container is open. 4013: the limit of pending bytes
    /// (CCacheFileManager::SetPendingLimit) refuses the bytes now, but may accept them later. 4011:
    /// out of memory, or more bytes than the limit allows at all. After 4011 and 4013 none of the
    /// bytes were taken, and time stamp and file version are unchanged.
    CmInt32 WriteData(const tagDataInfo& aDataInfo, const unsigned char* lpData, CmUint32 dwLength,
                      CmUint32 dwOffset);

    /// Reads dwLength bytes at dwOffset of the file or stream that aDataInfo selects. lpBuffer
    /// comes from array new. If the result is 0, the library owns it until it calls OnDataReady of
    /// the sink: in synchronous mode before this returns, in asynchronous mode later. Without a
    /// sink the library frees it. After any other result the host still owns it. 4009: lpBuffer is
    /// null, dwLength is 0, the container ends before the last byte, or it has no such stream.
    /// 4010: no such file. 4006, 4007: the file cannot be read.
    CmInt32 ReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                     CmUint32 dwLength);

    /// Sets dwLength to the length of a stream of the open container. A read past this length
    /// returns bytes of the next stream. The index has only the offsets at which streams begin, so
    /// the length is derived from them, as docs/container-format.md describes. Bytes that the file
    /// lacks do not count.
    /// The first call reads the index again and sorts its offsets. It takes about twice as long as
    /// the open, or several times as long if the index is not in order, and keeps 4 bytes for each
    /// stream. Further calls take constant time. In asynchronous mode the index is read on the
    /// worker thread, after everything that was queued before, and the call waits for this. No
    /// callback follows.
    /// 4009: no such stream. 4010: no container was opened (the host knows the sizes of its record
    /// files), or the worker has ended. 4007: the container is closed. 4002, 4006: the index can no
    /// longer be read. 4011: out of memory. On failure dwLength is unchanged, and a later call
    /// tries again.
    CmInt32 GetStreamLength(const tagDataInfo& aDataInfo, CmUint32& dwLength);

    /// Reads from a record file during the call, in both modes, and sets dwLength to the number of
    /// bytes read. The host keeps the buffer, and no callback follows. In asynchronous mode it
    /// waits until the worker has done everything that was queued before. 4010: no such file, or a
    /// container is open. Other codes as for ReadData.
    CmInt32 SyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                         CmUint32& dwLength);

    /// Called by the files. Stores the report (the result only if it is a failure) and passes it on
    /// to the sink.
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    /// Called by the files. Passes the buffer to the sink, or frees it if there is no sink.
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;
    /// The last failure that was reported since Initialize, or 0. 4009 if the link is not
    /// Link_Local.
    CmInt32 GetFileStatus(CCacheFileManager::LinkType aLinkType) override;

 protected:
    /// Finds the file that aDataInfo selects. Returns 0, or 10011 with pFile unchanged. Adds no
    /// reference.
    CmInt32 DataInfo2FileHandler(const tagDataInfo& aDataInfo, IFileOperation*& pFile) const;

 private:
    const CmUint32 m_dwRecordID;
    const int m_bDownload;
    const int m_bAsync;
    IFileOpSink* m_pSink = nullptr;
    CCacheFileManager::LinkType m_LinkType{};
    CCacheFileManager::OpType m_OpType{};
    CmInt32 m_lStatus = 0;
    CCmString m_strHomeDir;
    CDownloadFileHandler* m_pDownloadFile = nullptr;  // owned
    // Created by the first open.
    std::unique_ptr<cachefile_internal::tagPlayedFiles> m_pRecordFiles;
    CmUint32 m_dwCBTimeStamp = 0;
    CmUint32 m_dwFileVersion = 0;
};
