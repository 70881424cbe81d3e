#pragma once

#include <filesystem>
#include <optional>

#include "tools/cachefile/System.h"

/// Locks the file that a recorder locks in its directory, and creates it if it is missing. If
/// another process has the lock, it tries again for 100 ms, because a process that only looks at
/// the lock has it for a moment. The lock is released with aLock. Unknown: errno has the reason.
System::CFileLock::Outcome TakeRecordingLock(const std::filesystem::path& aDirectory,
                                             std::optional<System::CFileLock>& aLock);
