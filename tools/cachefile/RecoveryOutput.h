#pragma once

#include <filesystem>

#include "tools/cachefile/Progress.h"
#include "tools/cachefile/Recovery.h"

/// Writes what was recovered as a new directory of record files, or as a new container, and its
/// notes; aNotes are those of the source. Opens it
/// again and compares it with the source, and only then gives it its name. Pieces that no container
/// can hold become Missing. A piece that cannot be read completely becomes Damaged. Throws
/// CFailure, also if aOutput exists, and Interrupted; then nothing is left.
void WriteRecovery(const tagRecording& aRecording, const tagNotes& aNotes, tagRecovery& aRecovery,
                   const std::filesystem::path& aOutput, bool bContainer, ProgressMode aMode);
