#pragma once

#include "platform/CmTypes.h"

/// Converts the paths of C hosts (UTF-8, in the form of the system) into the library's form.
///
/// The separator of the library is the backslash on every system, and the library never creates the
/// first component of a path. So "out/a" becomes ".\out\a", and "/x" becomes "\x". The beginning of
/// a path stays if it is a drive, "." or "..". Each function returns false if the path is null or
/// cannot be expressed in the library's form. They throw std::bad_alloc. Any thread.
namespace capi {

/// Converts a directory; the result ends with a backslash. "" is the current directory.
bool TakeDirectory(const char* lpPath, CCmString& strPath);

/// Converts the name of a file in a directory.
bool TakeName(const char* lpName, CCmString& strName);

/// Converts the path of a record file; the result has the encoding of the process.
bool TakeLocalPath(const char* lpPath, CCmString& strPath);

/// Converts the path of a container; the result is UTF-8, as the library expects.
bool TakeUtf8Path(const char* lpPath, CCmString& strPath);

}  // namespace capi
