#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

/// Converts a path that a user wrote to the library's form.
///
/// The library separates with backslashes on every system, and never creates the first component of
/// a path to be written. So `out/a` becomes `.\out\a`, whose first component always exists, and
/// `/x/a` becomes `\x\a`. A path that begins with a drive, "." or ".." keeps its beginning. On
/// POSIX systems the library cannot express a file name with a backslash: it takes it for two
/// names.
inline std::string HostPath(const std::string& strPath) {
    const std::filesystem::path aPath(strPath);
    const bool bAnchored = aPath.has_root_path() ||
                           (!aPath.empty() && (*aPath.begin() == std::filesystem::path(".") ||
                                               *aPath.begin() == std::filesystem::path("..")));
    std::string strResult = bAnchored ? strPath : "./" + strPath;
    std::replace(strResult.begin(), strResult.end(), '/', '\\');
    return strResult;
}

/// The same for a directory. The result ends with a backslash, so that a name can be appended. An
/// empty path is the current directory.
inline std::string HostDirectory(const std::string& strPath) {
    std::string strResult = HostPath(strPath);
    if (strResult.back() != '\\') strResult += '\\';
    return strResult;
}
