#pragma once

#include "platform/CmTypes.h"

namespace cachefile_internal {

/// The action that failed. It decides which code "permission denied" gets.
enum class FileAction { MakeDirectory, OpenForWriting, OpenForReading, Write };

/// Returns the result code for the errno of a failed call: 4001 not found, 4003 no space left, 4004
/// or 4012 permission denied, otherwise 4006. For a failed write only 4003 and 4006.
CmInt32 SystemErrorToResult(int nErrno, FileAction aAction);

}  // namespace cachefile_internal

using cachefile_internal::FileAction;
using cachefile_internal::SystemErrorToResult;
