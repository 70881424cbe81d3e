#pragma once

#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Recovery.h"

/// The notes of what was recovered from aRecording, in the state "recovered".
///
/// They are the notes of the source, if it has any, with the streams that were written. Only
/// verified streams have a checksum, so that no later check calls a stream verified whose original
/// bytes are unknown. Throws std::bad_alloc.
Json MakeRecoveryNotes(const tagRecording& aRecording, const tagNotes& aNotes,
                       const tagRecovery& aRecovery);
