#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/CmTypes.h"

/// A file system in memory for a test program. Its source is linked in place of the platform
/// layer's file calls; all code above them is that of the library. It can log the changes of the
/// disk and make calls fail.
///
/// One object for the process. File calls may be made on any thread: a mutex guards them, and it is
/// locked while m_fault runs. A test uses the members only while no file call can run.
class MemoryDisk {
 public:
    struct File {
        CCmString strBytes;
        std::uint64_t qwBadFrom = 0;  ///< a read that touches [qwBadFrom, qwBadTo) fails
        std::uint64_t qwBadTo = 0;

        int nOpen = 0;  ///< streams that are not closed yet
        std::uint64_t qwReads = 0;
        std::uint64_t qwBytesRead = 0;
        int nNumber = 0;  ///< identifies the file in the log
    };
    using FilePtr = std::shared_ptr<File>;

    /// One change of the disk. Paths have slashes and are relative to the current directory.
    struct Change {
        enum Kind {
            Written,      ///< strBytes was written at qwOffset of the file
            Cut,          ///< the file was truncated to qwOffset bytes
            Synced,       ///< the file was synced; if bSucceeded is false, the sync failed
            Named,        ///< strPath now names nFile, which may be c_nDirectory or c_nNothing
            NamesSynced,  ///< the directory strPath was synced; bSucceeded as for Synced
        };
        Kind aKind;
        int nFile = 0;
        bool bSucceeded = true;
        std::uint64_t qwOffset = 0;
        CCmString strBytes = {};
        CCmString strPath = {};
    };
    static constexpr int c_nNothing = 0, c_nDirectory = -1;

    enum Op { Op_Open, Op_Close, Op_Place, Op_Write, Op_Cut, Op_Sync, Op_SyncNames, Op_Name };
    struct Call {
        Op aOp;
        File* pFile = nullptr;       ///< null for calls by name
        std::uint64_t qwOffset = 0;  ///< of a write or a cut
        std::size_t dwLength = 0;    ///< of a write
    };
    /// How a call fails. A write has written dwDone bytes before, and a close has closed the file.
    struct Fault {
        bool bFails = false;
        int nErrno = 0;
        std::size_t dwDone = 0;
    };

    static MemoryDisk& Instance();

    /// Removes all names and the log, and resets m_bLog, m_fault and m_syncDelay.
    void Clear();
    /// Creates a file with these bytes without a line in the log.
    File& Put(const CCmString& strPath, CCmString strBytes);
    /// The bytes of a file, or "<no file>" if there is none.
    CCmString Get(const CCmString& strPath) const;
    /// The path as the log and the names have it.
    static CCmString Key(const CCmString& strPath);

    std::map<CCmString, FilePtr> m_mapNames;  ///< null: a directory
    bool m_bLog = false;
    std::vector<Change> m_vecLog;
    std::function<Fault(const Call&)> m_fault;
    std::chrono::microseconds m_syncDelay{};  ///< the wait before each sync
    std::uint64_t m_qwFree = std::uint64_t{1} << 40;

    /// What a descriptor refers to: a file, or a directory if pFile is null.
    struct Opened {
        FilePtr pFile;
        CCmString strDirectory = {};
    };

    // For the file calls.
    void Note(Change aChange);
    FilePtr NewFile();
    int AddDescriptor(Opened aOpened);
    std::map<int, Opened> m_mapDescriptors;
    std::mutex m_mutex;

 private:
    int m_nFiles = 0;
    int m_nDescriptors = 0;
};
