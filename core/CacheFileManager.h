#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "platform/CmExport.h"
#include "platform/CmMutex.h"
#include "platform/CmTypes.h"

class CPlayFileHandler;
class CWriteFileHandler;

/// The library's entry point: creates the handlers and has the cache home directory, in which they
/// keep their record files.
///
/// One object for the process, created by the first Instance() and never destroyed. It keeps no
/// list of handlers, which are owned by reference counts. Only the thread that drives the handlers
/// uses the factories and the home directory. The worker thread uses only the link table, which has
/// a lock, and constants. No operation throws.
class CACHEFILE_API CCacheFileManager {
 public:
    /// The storage of a file. Everything that the handlers open is Link_Local.
    enum LinkType : CmInt32 {
        Link_Local = 1,    ///< the local or a mounted file system
        Link_Primary = 2,  ///< the primary network file system
        Link_Backup = 3,   ///< the backup network file system
    };

    /// The operation of a status report.
    enum OpType : CmInt32 { Op_Open = 1, Op_Close = 2, Op_Read = 3, Op_Write = 4 };

    static CCacheFileManager& Instance();

    ~CCacheFileManager();
    CCacheFileManager(const CCacheFileManager&) = delete;
    CCacheFileManager& operator=(const CCacheFileManager&) = delete;

    /// Returns a handler that writes the record files of the recording dwRecordID, in asynchronous
    /// mode if bAsync is non-zero. The host owns one reference, which Destroy releases. Returns
    /// null if there is no memory.
    CWriteFileHandler* CreateWriteFileHandler(CmUint32 dwRecordID, int bAsync);

    /// Returns a handler that reads the recording dwRecordID, in asynchronous mode if bAsync is
    /// non-zero. If bDownload is non-zero, it may open one downloaded container. Reference and null
    /// as above. Destroying a handler with both set stops the worker thread of the process: files
    /// that other handlers have opened asynchronously return CACHE_ERR_INVALID_STATE from then on.
    CPlayFileHandler* CreatePlayFileHandler(CmUint32 dwRecordID, int bDownload, int bAsync);

    /// The cache home directory, ".\kvr2\" at first. A change through the reference is not checked,
    /// and no backslash is appended. Handlers copy the directory in their Initialize.
    CCmString& GetTempHomeDir();

    /// Sets the cache home directory. A backslash is appended if it does not end with one. An empty
    /// directory stays empty and means the current directory of the process.
    void SetTempHomeDir(const CCmString& strDir);

    /// Returns non-zero if the link may be used for this receiver (a handler's address), 0 if it is
    /// marked as down. The library never marks a link. Any thread.
    int GetLinkStatusFromMap(std::uintptr_t dwHandlerKey, LinkType aLinkType);

    /// Called before and after every open, close and write on the worker thread. They do nothing.
    void BeforeOperation(LinkType aLinkType, std::uintptr_t dwHandlerKey);
    void AfterOperation(LinkType aLinkType);

    /// Delete a file, an empty directory, or every file of a list. Failures are not reported.
    static void DeleteTempFile(const CCmString& strPath);
    static void DeleteTempDir(const CCmString& strPath);
    static void DeleteAllTemp(const std::vector<CCmString>& vecPaths);

    /// The multiplier of the file ids that the library composes: n * 1000 + data type.
    CmUint32 GetFileIDMagicNumber() const;

    /// The largest 32-bit value. As a write offset it means the end of the file.
    static CmUint32 GetMaxDword();

    /// The calendar time in seconds since 1970, in 32 bits. (Not milliseconds, and not the uptime.)
    CmInt32 GetTickCount() const;

    /// The same value as GetTickCount; the argument is not used.
    CmUint32 GetIntervalMs(CmUint32 dwStart) const;

    /// Returns how many bytes have been lost in this process after the call that took them had
    /// returned 0. These are gathered bytes whose block could not be passed on or written, and
    /// bytes whose sync has failed. All bytes of a failed block are counted, because a failed
    /// append is truncated again. The count never decreases. Any thread.
    static std::uint64_t GetLostBytes();

    /// Adds to the count above; the file layers call it. Any thread.
    static void AddLostBytes(std::uint64_t qwBytes);

    /// Returns how many bytes of the process were passed to the worker thread and are not yet
    /// processed. Gathered bytes and synchronous writes are not included. Any thread.
    static std::uint64_t GetPendingBytes();

    /// Limits the pending bytes of the process. The largest value, which is the default, means no
    /// limit; a value below 65,536 counts as 65,536. Any thread.
    ///
    /// A WriteData that would raise the pending bytes above the limit with its bytes and the
    /// gathered ones takes nothing and returns CACHE_ERR_TRY_AGAIN, which is not traced. The same
    /// call may succeed when less is pending. If its bytes and the gathered ones alone exceed the
    /// limit, waiting does not help, and it returns CACHE_ERR_OUT_OF_MEMORY. Writes of up to 32,768
    /// bytes always succeed when nothing is pending. Flushing, closing and destroying are never
    /// refused, so each file may raise the pending bytes by up to 32,767 above the limit.
    static void SetPendingLimit(std::uint64_t qwBytes);

    /// From now on a thread of the library (the sync thread) syncs written files. The bytes of a
    /// write are on the disk when dwMs milliseconds and the time of one sync have passed, unless
    /// the disk is too slow for all files of the process. Writes do not wait for the sync thread.
    /// The names of files opened from now on, and those of their directories, are synced too.
    ///
    /// After a failed sync every byte of the file since the last successful sync counts as lost, in
    /// GetLostBytes once, and the failure is reported as that of a write. In asynchronous mode it
    /// is reported as Op_Write. In synchronous mode the next WriteData, SyncFile or CloseFile of
    /// the file returns the code, once, and WriteData and CloseFile do nothing else then. A file
    /// with unsynced bytes is synced once more after its close, which does not change the result of
    /// the close.
    ///
    /// On systems other than Windows the syncs keep descriptors open: one for each directory with
    /// new names, until a file with a new name there is synced, and one for each closed file until
    /// its last sync. While there are more than 64, files are synced without waiting; while there
    /// are more than 256, a close syncs its file itself.
    ///
    /// 0 ends the interval and syncs all unsynced bytes before the call returns. So do a shutdown
    /// and, on systems that have one, the exit handler. Returns 0, CACHE_ERR_OUT_OF_MEMORY or
    /// CACHE_ERR_FAILED if the thread cannot be started, or CACHE_ERR_INVALID_STATE in a forked
    /// child, which has no such thread. The interval may be changed at any time. Any thread, but
    /// not a trace sink or a wake-up callable.
    static CmInt32 SetSyncInterval(CmUint32 dwMs);

    /// Returns how many bytes of the process are written but not synced. The bytes of a file count
    /// when it is opened or written to while a sync interval is set, and when it is synced by
    /// SyncFile; bytes that were written earlier count from then on too. Bytes stop counting when a
    /// sync succeeds, when it fails (they are lost then), and when the file is closed without an
    /// interval. Any thread.
    static std::uint64_t GetUnsyncedBytes();

    /// bOn non-zero: from now on a host whose write returned CACHE_ERR_TRY_AGAIN is woken, once,
    /// when the smallest refused piece fits and the limit that refused it is at most half used, or
    /// not at all. A WaitAndRun returns, the wake-up callable is called and the descriptor becomes
    /// readable, as for a result; it is not counted, and the next run clears it. 0, as at first:
    /// the host tries again by itself. Any thread.
    static void SetRoomWakeUp(int bOn);

    /// From now on gathered bytes leave their buffer when the oldest of a file has been there for
    /// dwMs milliseconds; 0, as at first, means that they stay until the buffer is full. In
    /// asynchronous mode this happens on the caller thread, in the next call of any handler there
    /// or when its queue runs; a host that waits for its queue, in whichever way, is woken in time,
    /// and its runs do not count it. In synchronous mode it happens at the end of the next call of
    /// any handler on the thread that gathered the bytes, and in FlushAged.
    ///
    /// Such a flush is a FlushData: the limit of pending bytes never refuses it, and a failure is
    /// traced and counted, and in asynchronous mode reported as Op_Write. It does not change the
    /// result of the call in which it happens. Asynchronous files are no longer flushed by age
    /// after the thread is detached or the worker is stopped. Bytes that are gathered when the age
    /// is first set count from the next append to their file. Any thread.
    static void SetGatherAge(CmUint32 dwMs);

    /// Flushes the files of the calling thread whose oldest gathered byte has reached the age. For
    /// synchronous hosts that make no other call for a while. Any thread.
    static void FlushAged();

    static const char s_cFileSeparator;     ///< '_'
    static const char s_cFileEndSeparator;  ///< '.'
    static const char s_cWinPathSeparator;  ///< '\': the separator of every path of the library
    static const char s_cUniPathSeparator;  ///< '/': an ordinary character to the library
    static const char s_cFileMidSeparator;  ///< '-'

 protected:
    CCacheFileManager();

 private:
    template <class T>
    friend T& CmNeverDestroyed();

    struct tagLinkStatus {
        int bPrimaryDown;
        int bBackupDown;
    };

    /// Saves the lock of each query. No function changes the map, so the lock is not needed; one
    /// that adds an entry has to set an atomic that this function reads instead.
    bool HasNoLinkStatus() const CM_NO_LOCK_ANALYSIS { return m_mapLinkStatus.empty(); }

    CCmString m_strTempHomeDir;
    std::map<std::uintptr_t, tagLinkStatus> m_mapLinkStatus CM_GUARDED_BY(m_mutexLinkStatus);
    CCmMutexThreadRecursive m_mutexLinkStatus;
};
