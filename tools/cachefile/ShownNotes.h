#pragma once

#include <string>

#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Recording.h"

/// The state as it is shown to people and in JSON.
const char* StateName(RecordingState aState);

/// The notes of a recording that a command shows, and the state of a directory. A container that
/// was read from standard input has no notes.
struct tagShownNotes {
    /// Warns if the notes cannot be used.
    explicit tagShownNotes(const tagRecording& aRecording);

    /// The value of a field of the notes, or null.
    Json Field(const char* lpName) const;

    /// The same as text for a terminal; empty if it is not a text.
    std::string Text(const char* lpName) const;

    tagNotes aNotes;
    RecordingState aState = RecordingState::Unknown;
};
