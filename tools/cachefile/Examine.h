#pragma once

#include "tools/cachefile/Findings.h"
#include "tools/cachefile/Recording.h"

/// Reports what is wrong with a container, from its header and index alone. The findings are in the
/// order of the parts of the file: header, size, index, streams. Keeps at most qwMax findings of
/// each code. A directory has no findings.
tagFindings Examine(const tagRecording& aRecording, std::uint64_t qwMax = c_qwMaxOfACode);

/// Warns on standard error if a recording is damaged. Returns the exit code of the command.
int ReportDamage(const tagRecording& aRecording);
