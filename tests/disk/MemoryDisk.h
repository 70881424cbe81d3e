#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/CmTypes.h"

/// The file system of a test program, kept in memory. Its source is linked in place of the platform
/// layer's file calls; everything above them is what hosts use. It can write down what changes the
/// disk, and let calls fail.
///
/// One for the process. The file calls may come on any thread: a mutex guards them, and the fault
/// runs under it. A test touches the members only while no handler works.
class MemoryDisk {
 public:
    struct File {
        CCmString strBytes;
        std::uint64_t qwBadFrom = 0;  ///< a read that touches [qwBadFrom, qwBadTo) fails
        std::uint64_t qwBadTo = 0;

        int nOpen = 0;  ///< streams that are not closed yet
        std::uint64_t qwReads = 0;
        std::uint64_t qwBytesRead = 0;
        int nNumber = 0;  ///< its name in the log
    };
    using FilePtr = std::shared_ptr<File>;

    /// One change of the disk. Paths have slashes and begin in the current directory.
    struct Change {
        enum Kind {
            Written,      ///< strBytes at qwOffset of the file
            Cut,          ///< the file ends at qwOffset now
            Synced,       ///< the file; not well: its pages may be on the disk or be dropped
            Named,        ///< strPath is the file, c_nDirectory or c_nNothing now
            NamesSynced,  ///< the names in the directory strPath
        };
        Kind aKind;
        int nFile = 0;
        bool bWell = true;
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
    /// How a call fails: a write after dwDone bytes, a close after it has closed.
    struct Fault {
        bool bFails = false;
        int nErrno = 0;
        std::size_t dwDone = 0;
    };

    static MemoryDisk& Instance();

    /// Empties the disk and sets everything back.
    void Clear();
    /// Makes a file of these bytes, which the log does not show.
    File& Put(const CCmString& strPath, CCmString strBytes);
    /// The bytes of a file, "<no file>" if there is none.
    CCmString Get(const CCmString& strPath) const;
    /// The path as the log and the names have it.
    static CCmString Key(const CCmString& strPath);

    std::map<CCmString, FilePtr> m_mapNames;  ///< null: a directory
    bool m_bLog = false;
    std::vector<Change> m_vecLog;
    std::function<Fault(const Call&)> m_fault;
    std::chrono::microseconds m_syncDelay{};  ///< how long a sync takes before it begins
    std::uint64_t m_qwFree = std::uint64_t{1} << 40;

    /// What a descriptor leads to: a file, or a directory if that is null.
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
