#pragma once

#include "tools/cachefile/Findings.h"
#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Recording.h"

/// Returns what is wrong with a recording directory: its files, compared with its notes. With bDeep
/// the files are read and their checksums are compared too. While a recorder writes to it, nothing
/// is compared. Keeps at most qwMax findings of each code. Throws Interrupted.
tagFindings ExamineDirectory(const tagRecording& aRecording, const tagNotes& aNotes, bool bDeep,
                             std::uint64_t qwMax = c_qwMaxOfACode);
