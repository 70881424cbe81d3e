#pragma once

#include "platform/CmTypes.h"

/// Turns the paths of C hosts (UTF-8, in the form of the system) into the library's form.
///
/// The library separates with backslashes on every system and never creates the first component of
/// a path. So "out/a" becomes ".\out\a", and "/x" becomes "\x"; what begins with a drive, "." or
/// ".." keeps its beginning. Each function returns false if the path is null, or cannot be
/// expressed in the library's form. They throw std::bad_alloc. Any thread.
namespace capi {

/// A directory: it ends with a backslash. "" is the current directory.
bool TakeDirectory(const char* lpPath, CCmString& strPath);

/// The name of a file in a directory.
bool TakeName(const char* lpName, CCmString& strName);

/// The path of a file in the encoding of the process, as record files have it.
bool TakeLocalPath(const char* lpPath, CCmString& strPath);

/// The path of a container, which is UTF-8 for the library too.
bool TakeUtf8Path(const char* lpPath, CCmString& strPath);

}  // namespace capi
