#pragma once

#include <optional>
#include <string>

#include "tools/cachefile/RecordNotes.h"
#include "tools/cachefile/Sources.h"
#include "tools/cachefile/Status.h"

/// One recording directory that is being made. Without --split a recording has one part.
///
/// The loop of the record command owns one part at a time. It is used on the caller thread. The
/// sources outlive it; their recorders are those of this part.
class CRecordPart {
 public:
    /// Locks the directory, creates the record files and opens them. Throws CFailure and
    /// Interrupted; then it leaves only the directory with its lock file.
    CRecordPart(const tagRecordOptions& aOptions, CmUint32 dwNumber, Sources& vecSources);
    /// Shuts the library down. Unless WriteNotes was called, the notes stay "open".
    ~CRecordPart();
    CRecordPart(const CRecordPart&) = delete;
    CRecordPart& operator=(const CRecordPart&) = delete;

    CmUint32 GetNumber() const { return m_plan.dwRecordID; }
    std::filesystem::path GetDirectory() const { return System::NativePath(m_plan.Directory()); }

    /// Call it at least once a second: other processes can read the status of the recording.
    void UpdateStatus() { m_status->Update(); }

    /// Closes all streams and shuts the library down. When it returns, all accepted bytes are in
    /// the files or lost.
    void Close();

    /// Writes the notes of the closed part. Warns and returns false if they cannot be written.
    bool WriteNotes(const std::string& strReason);

 private:
    void OpenRecorders() const;

    const tagPlan m_plan;
    Sources& m_vecSources;
    std::optional<System::CFileLock> m_lock;
    std::optional<CStatusFile> m_status;
    std::optional<CRecordFiles> m_files;
    std::optional<CRecordNotes> m_notes;
    std::optional<Shutdown> m_shutdown;  // destroyed first
};

/// The next number after dwNumber for which there is no directory. Throws CFailure if there is
/// none.
CmUint32 FindFreeNumber(const tagPlan& aPlan, CmUint32 dwNumber);
