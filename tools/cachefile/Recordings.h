#pragma once

#include <string>

#include "tools/cachefile/Recording.h"

/// Prints the recordings of a directory, one per line, or as the JSON document of a command.
/// Returns false, and prints nothing, if aDirectory is no directory of recordings: one without
/// record files, but with directories whose names are numbers. Throws CFailure.
bool PrintRecordings(const std::string& strCommand, const tagRecording& aDirectory, bool bJson);
