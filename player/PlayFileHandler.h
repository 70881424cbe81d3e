#pragma once

#include <memory>
#include <vector>

#include "core/FileOpSink.h"
#include "platform/CmExport.h"

class CDownloadFileHandler;
class IFileOperation;

/// Reads one recording back: from record files that the host opens by name and describes, or from
/// one downloaded container.
///
/// Made by CCacheFileManager::CreatePlayFileHandler with one reference, the host's, which Destroy
/// gives back. Files and queued results hold further references, so in asynchronous mode it lives
/// until the last result has been delivered. It has no lock: the host drives it from one thread. In
/// asynchronous mode that is the caller thread, on which the callbacks run too. Operations return
/// codes of CmResult.h and throw nothing.
///
/// Order of calls: Initialize; SetHomeDir if wanted; OpenRecordFile for each file, or
/// OpenDownloadedFile; reads and writes; CloseAllRecordFiles; Destroy. docs/playing.md
/// describes who owns the buffers.
class CACHEFILE_API CPlayFileHandler : public IFileOpStatus {
 public:
    /// Called by the manager. Never fails.
    CPlayFileHandler(CmUint32 dwRecordID, int bDownload, int bAsync);
    ~CPlayFileHandler() override;
    CPlayFileHandler(const CPlayFileHandler&) = delete;
    CPlayFileHandler& operator=(const CPlayFileHandler&) = delete;

    /// Sets the sink (not owned, may be null; it has to outlive the handler's Destroy) and appends
    /// the manager's home directory, the record identifier and a backslash to the handler's
    /// directory. 0, or CACHE_ERR_OUT_OF_MEMORY with the directory as it was.
    CmInt32 Initialize(IFileOpSink* pSink);

    /// Replaces the handler's directory for files opened from now on; a backslash is appended if
    /// it ends without one. An empty one means the process's current directory.
    void SetHomeDir(const CCmString& strHomeDir);

    /// The handler's own directory; a change through the reference is taken as it is.
    CCmString& GetTempHomeDir();

    /// Opens the file strFileName of the handler's directory, which holds what aFileDescriber
    /// describes. bWrite non-zero empties it and lets WriteData write to it. If several files match
    /// a request, the one opened first is used. In asynchronous mode 0 means that the open was
    /// queued; its outcome is reported as Op_Open. 4010: a container is open. Other codes: why the
    /// file could not be opened.
    CmInt32 OpenRecordFile(const CCmString& strFileName, const tagFileDescriber& aFileDescriber,
                           int bWrite);

    /// Opens a downloaded container by its full path (UTF-8) and lists its streams in the order of
    /// its index. 4010: the handler was not made for download. 4008: this was called before,
    /// successfully or not. 4002: not a container, or one that is cut off; the list then holds what
    /// precedes the damage, and reads of it work. 4011: more than 1,048,576 streams. In
    /// asynchronous mode it waits for the worker thread, and Op_Open follows.
    CmInt32 OpenDownloadedFile(const CCmString& strFilePath,
                               std::vector<tagFileDescriber>& vecFileDescriber);

    /// Closes all files but keeps their list, so that later reads return 4007 (not open); in
    /// asynchronous mode they deliver an OnDataReady without bytes and then report 4007 as Op_Read.
    /// Always 0; in asynchronous mode a failure is reported as Op_Close.
    CmInt32 CloseAllRecordFiles();

    /// Closes all files and gives back the host's reference; the host does not use the handler any
    /// more. After it returns the sink is not called, and reads that are still queued free their
    /// buffers. A handler made for download in asynchronous mode stops the worker thread of the
    /// process, and waits until it has done what was queued. Files that other handlers have opened
    /// before then return 4010 for everything that needs the worker. Always 0.
    CmInt32 Destroy();

    /// The CB time stamp and the file version of the recording: those of the open container, or
    /// those taken from the first block written at offset 0 through this handler (see WriteData).
    /// 0 until known.
    CmUint32 GetCBTimeStamp() const;
    CmUint32 GetFileVersion() const;

    /// Copies dwLength bytes of lpData to the file that aDataInfo designates, at dwOffset (below
    /// 2^31) or at its end for 0xFFFFFFFF. The first block of 72 bytes or more at offset 0, unless
    /// of data type 5, gives time stamp and file version, again until the time stamp is not 0.
    /// 4009: lpData is null and dwLength is not 0. 4010: no such file, one opened for reading, or a
    /// container is open. 4013: the limit of pending bytes (CCacheFileManager::SetPendingLimit)
    /// refuses the piece at the moment. 4011: no memory, or a piece above that limit. After 4011
    /// and 4013 nothing of the piece has been taken, and time stamp and file version are as before.
    CmInt32 WriteData(const tagDataInfo& aDataInfo, const unsigned char* lpData, CmUint32 dwLength,
                      CmUint32 dwOffset);

    /// Reads dwLength bytes at dwOffset of what aDataInfo designates into lpBuffer, from array new.
    /// After 0 the buffer belongs to the library until the sink's OnDataReady gets it: before this
    /// returns in synchronous mode, later in asynchronous mode. Without a sink it is freed. After
    /// any other result it stays the host's. 4009: null, zero length, bytes after the end of the
    /// container, no such stream in it. 4010: no such file. 4006, 4007: the file cannot be read.
    CmInt32 ReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                     CmUint32 dwLength);

    /// Sets dwLength to the length of a stream of the open container: a read that goes further runs
    /// into the next stream. The index contains only where streams begin, so the length is derived,
    /// as docs/container-format.md describes, without bytes that the file lacks. The first request
    /// walks the index a second time and sorts its offsets, which takes about as long as the open,
    /// or several times as long if the index is in no order; it keeps 4 bytes for each stream.
    /// Further requests take constant time. In asynchronous mode the walk runs on
    /// the worker thread, after what was queued before, and this call waits for it; no callback
    /// follows.
    /// 4009: no such stream. 4010: no container was opened (the host knows the sizes of its record
    /// files), or the worker has ended. 4007: closed. 4002, 4006: the index cannot be read any
    /// more. 4011: no memory. On failure dwLength stays as it was, and a later request tries again.
    CmInt32 GetStreamLength(const tagDataInfo& aDataInfo, CmUint32& dwLength);

    /// Reads record files at once, in either mode; dwLength then counts the bytes read. The buffer
    /// stays the host's, and no callback follows. In asynchronous mode it waits until the worker
    /// has done what was queued before. 4010 with a container.
    CmInt32 SyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer, CmUint32 dwOffset,
                         CmUint32& dwLength);

    /// Called by the files: stores the report (the result only if it is a failure) and passes it
    /// on.
    void OnFileOpStatus(CCacheFileManager::LinkType aLinkType, CCacheFileManager::OpType aOpType,
                        CmInt32 aResult) override;
    /// Called by the files: passes the buffer to the sink, or frees it if there is none.
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override;
    /// The last failure reported since Initialize, else 0. 4009 for another link than Link_Local.
    CmInt32 GetFileStatus(CCacheFileManager::LinkType aLinkType) override;

 protected:
    /// The file that aDataInfo designates: 0, or 10011 with pFile as it was. No reference is taken.
    CmInt32 DataInfo2FileHandler(const tagDataInfo& aDataInfo, IFileOperation*& pFile) const;

 private:
    struct tagRecordFiles;

    const CmUint32 m_dwRecordID;
    const int m_bDownload;
    const int m_bAsync;
    IFileOpSink* m_pSink = nullptr;
    CCacheFileManager::LinkType m_LinkType{};
    CCacheFileManager::OpType m_OpType{};
    CmInt32 m_lStatus = 0;
    CCmString m_strHomeDir;
    CDownloadFileHandler* m_pDownloadFile = nullptr;  // owned
    std::unique_ptr<tagRecordFiles> m_pRecordFiles;   // made by the first open
    CmUint32 m_dwCBTimeStamp = 0;
    CmUint32 m_dwFileVersion = 0;
};
