#pragma once

#include <string>

#include "tools/cachefile/Recording.h"

/// Prints the recordings of a directory, one per line, or as the JSON document of a command.
/// Such a directory has no record files, but directories whose names are numbers. Returns false and
/// prints nothing if aDirectory is not one. Throws CFailure.
bool PrintRecordings(const std::string& strCommand, const tagRecording& aDirectory, bool bJson);
