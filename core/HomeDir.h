#pragma once

#include "platform/CmTypes.h"

/// How the manager and the handlers form their directories. None of them throws: without memory
/// the directory stays as it was, which is traced, and the result is CACHE_ERR_OUT_OF_MEMORY.

/// Makes strDirectory what strNew says, with a backslash appended unless it is empty or has one.
CmInt32 SetDirectory(CCmString& strDirectory, const CCmString& strNew);

/// Appends the manager's home directory, the record identifier in decimal and a backslash.
CmInt32 AppendRecordDirectory(CCmString& strDirectory, CmUint32 dwRecordID);
