#pragma once

#include "tools/cachefile/Findings.h"
#include "tools/cachefile/Recording.h"

/// Returns what is wrong with a container. Uses its size, header and index, but not its data. The
/// findings about header and size come first, then those about the index and the streams. Keeps at
/// most qwMax findings of each code. A directory has no findings.
tagFindings Examine(const tagRecording& aRecording, std::uint64_t qwMax = c_qwMaxOfACode);

/// Warns on standard error if a recording is damaged. Returns the exit code of the command.
int ReportDamage(const tagRecording& aRecording);
