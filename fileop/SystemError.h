#pragma once

#include "platform/CmTypes.h"

namespace cachefile_internal {

/// Which action failed; it decides what "permission denied" means.
enum class FileAction { MakeDirectory, OpenForWriting, OpenForReading, Write };

/// The result code for an errno value after a failed call: 4001 not found, 4003 no space left,
/// 4004 or 4012 denied, else 4006. A failed write knows 4003 and 4006 only.
CmInt32 SystemErrorToResult(int nErrno, FileAction aAction);

}  // namespace cachefile_internal

using cachefile_internal::FileAction;
using cachefile_internal::SystemErrorToResult;
