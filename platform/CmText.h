#pragma once

#include "platform/CmTypes.h"

/// Turns UTF-8 text into the encoding of the process, in which the paths of record files are given
/// to the system. False, with strText as it was, if the text is not UTF-8 or the encoding cannot
/// express it; on POSIX the bytes stay as they are and the result is true. Throws std::bad_alloc.
bool CmUtf8ToLocal(CCmString& strText);
