#pragma once

#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Sources.h"

/// Writes the notes of the recording that is being made.
///
/// It lives on the stack of the record command, which keeps the directory locked, and refers to its
/// sources. Only one thread uses it. If the notes cannot be written, it warns and the recording
/// goes on without them.
class CRecordNotes {
 public:
    /// Reads the notes of an earlier recording into the same directory. Those of streams that are
    /// not recorded again are kept, and so are fields that this version does not know.
    CRecordNotes(const tagPlan& aPlan, const Sources& vecSources);
    /// Without a Close nothing was recorded: notes that did not exist before are removed.
    ~CRecordNotes();
    CRecordNotes(const CRecordNotes&) = delete;
    CRecordNotes& operator=(const CRecordNotes&) = delete;

    /// Notes that the streams are being recorded.
    void Open();

    /// Notes what became of the streams, and why the recording ended. Call it after the shutdown,
    /// when the files are complete. The state stays "open" if a kept stream was never closed.
    void Close(const std::string& strReason);

    bool HasFailed() const { return m_bFailed; }

 private:
    void Save(const char* lpState, Json aStreams);

    const std::filesystem::path m_file;
    const Sources& m_vecSources;
    Json m_document;
    Json m_kept = Json::array();
    bool m_bAllKeptClosed = true;
    bool m_bNew = false;  // there were no notes before
    bool m_bClosed = false;
    bool m_bFailed = false;
};
