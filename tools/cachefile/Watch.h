#pragma once

#include "tools/cachefile/Commands.h"

/// Shows the streams of a recording directory once a second, with their rates and the free space,
/// until no recorder has it locked. On a terminal the text replaces the earlier one; with --json
/// there is a line each time. Returns the exit code of info. Throws CFailure, and Interrupted.
int Watch(const tagInfoOptions& aOptions);
