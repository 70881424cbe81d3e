#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "platform/CmExport.h"
#include "platform/CmMutex.h"
#include "platform/CmTypes.h"

class CPlayFileHandler;
class CWriteFileHandler;

/// The library's entry point: makes the handlers and holds the cache home directory under which
/// they keep their record files.
///
/// One object for the process, made by the first Instance() and never destroyed. It keeps no list
/// of handlers: one lives by its reference count alone. The factories and the home directory
/// belong to the thread on which the host drives its handlers; the worker thread uses the link
/// table, which has a lock, and constants. No operation throws.
class CACHEFILE_API CCacheFileManager {
 public:
    /// On which storage a file is. Everything the handlers open is Link_Local.
    enum LinkType : CmInt32 {
        Link_Local = 1,    ///< the local or a mounted file system
        Link_Primary = 2,  ///< the primary network file system
        Link_Backup = 3,   ///< the backup network file system
    };

    /// Which operation a status report is about.
    enum OpType : CmInt32 { Op_Open = 1, Op_Close = 2, Op_Read = 3, Op_Write = 4 };

    static CCacheFileManager& Instance();

    ~CCacheFileManager();
    CCacheFileManager(const CCacheFileManager&) = delete;
    CCacheFileManager& operator=(const CCacheFileManager&) = delete;

    /// A handler that writes the record files of the recording dwRecordID; bAsync non-zero for
    /// asynchronous mode. It comes with one reference, the host's, which Destroy gives back. Null
    /// when there is no memory.
    CWriteFileHandler* CreateWriteFileHandler(CmUint32 dwRecordID, int bAsync);

    /// A handler that reads the recording dwRecordID back; bDownload non-zero if it may open one
    /// downloaded container, bAsync non-zero for asynchronous mode. Reference and null as above.
    /// Destroying a handler with both set stops the worker thread of the process: files that other
    /// handlers have opened asynchronously return CACHE_ERR_INVALID_STATE from then on.
    CPlayFileHandler* CreatePlayFileHandler(CmUint32 dwRecordID, int bDownload, int bAsync);

    /// The cache home directory, ".\kvr2\" at first. A change through the reference is taken as it
    /// is; handlers copy the directory in their Initialize.
    CCmString& GetTempHomeDir();

    /// Sets the cache home directory, with a backslash appended if it ends without one. An empty
    /// one stays empty: record files then lie relative to the process's current directory.
    void SetTempHomeDir(const CCmString& strDir);

    /// Non-zero when the link may be used for this receiver (a handler's address), 0 when it is
    /// marked down. Nothing in the library marks one. Any thread.
    int GetLinkStatusFromMap(std::uintptr_t dwHandlerKey, LinkType aLinkType);

    /// Bracket every open, close and write on the worker thread. They change nothing.
    void BeforeOperation(LinkType aLinkType, std::uintptr_t dwHandlerKey);
    void AfterOperation(LinkType aLinkType);

    /// Delete a file, an empty directory, every file of a list. What cannot be deleted stays,
    /// without a report.
    static void DeleteTempFile(const CCmString& strPath);
    static void DeleteTempDir(const CCmString& strPath);
    static void DeleteAllTemp(const std::vector<CCmString>& vecPaths);

    /// The multiplier of the file ids that the library composes: n * 1000 + data type.
    CmUint32 GetFileIDMagicNumber() const;

    /// The largest 32-bit value. As a write offset it means the end of the file.
    static CmUint32 GetMaxDword();

    /// Calendar time in whole seconds since 1970, cut to 32 bits: not milliseconds, not uptime.
    CmInt32 GetTickCount() const;

    /// The same value as GetTickCount; the argument is not used.
    CmUint32 GetIntervalMs(CmUint32 dwStart) const;

    /// How many bytes have been lost in this process after the call that took them had returned 0:
    /// gathered bytes whose block could not be passed on or written. A failed block counts whole:
    /// what a failed append has written is cut off again. It only grows. 0 is what a host wants to
    /// see. Any thread.
    static std::uint64_t GetLostBytes();

    /// Adds to the count above; the file layers call it. Any thread.
    static void AddLostBytes(std::uint64_t qwBytes);

    /// How many bytes are accepted and not yet written: handed to the worker thread, which has not
    /// finished with them. Not what is still gathered, and nothing in synchronous mode. Of the
    /// whole process. Any thread.
    static std::uint64_t GetPendingBytes();

    /// From now on a WriteData that would raise the pending bytes above qwBytes (the gathered bytes
    /// that it would hand over with its own are counted in) is refused: it returns
    /// CACHE_ERR_TRY_AGAIN, which is not traced, nothing is taken of the piece, and the same call
    /// may succeed when less is pending. A piece that together with the gathered bytes is larger
    /// than qwBytes gets CACHE_ERR_OUT_OF_MEMORY instead: waiting does not help. Flushing, closing
    /// and destroying are never refused, so each file may take the pending bytes up to 32,767 above
    /// the limit. Below 65,536 counts as 65,536; the largest value means no limit, and holds at
    /// first. Pieces of up to 32,768 bytes fit as soon as nothing is pending, larger ones if the
    /// limit is as large. Any thread.
    static void SetPendingLimit(std::uint64_t qwBytes);

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

    CCmString m_strTempHomeDir;
    std::map<std::uintptr_t, tagLinkStatus> m_mapLinkStatus CM_GUARDED_BY(m_mutexLinkStatus);
    CCmMutexThreadRecursive m_mutexLinkStatus;
};
