#pragma once

#include "platform/CmTypes.h"

/// Converts UTF-8 text to the encoding of the process, which paths of record files have. Returns
/// false and leaves strText unchanged if the text is not UTF-8 or the encoding cannot express it.
/// On POSIX it returns true and changes nothing. Throws std::bad_alloc.
bool CmUtf8ToLocal(CCmString& strText);
