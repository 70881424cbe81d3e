#pragma once

#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Recording.h"

/// Compares the directories that are packed with their notes, and makes the notes of the container
/// from them.
///
/// It lives on the stack of the pack command, and only one thread uses it. It warns of
/// differences. Only Write throws.
class CPackNotes {
 public:
    explicit CPackNotes(const std::filesystem::path& aContainer)
        : m_file(NotesOfContainer(aContainer)) {}

    /// Reads the notes of a directory, and compares its record files with them. bHeld: it was being
    /// recorded before its files were listed. Returns whether their sizes may be old ones.
    bool AddDirectory(const tagRecording& aRecording, bool bHeld);

    /// Adds the notes of a stream of the last directory, with the name that it has in the
    /// container. Returns its checksum, or an empty text.
    std::string AddStream(const tagFileDescriber& aDescriber, const tagFileDescriber& aPacked);

    /// Whether a record file differs from the notes of its directory.
    bool HasDamage() const { return m_bDamage; }

    const std::filesystem::path& GetFile() const { return m_file; }

    /// Writes the notes of the container, or removes old ones if there are none. If the header of
    /// the conf stream was changed, it has another checksum than its record file, so that is left
    /// out. Throws CFailure.
    void Write(bool bHeaderChanged);

 private:
    void Compare(const tagRecording& aRecording);

    const std::filesystem::path m_file;
    tagNotes m_notes;  // of the last directory
    Json m_document;   // of the container; null as long as no directory has notes
    bool m_bDamage = false;
};
