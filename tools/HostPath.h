#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

/// A path as a user gives it, in the form that the library takes.
///
/// The library separates with backslashes on every system, and of a path to be written it never
/// creates the first component. So `out/a` becomes `.\out\a`, whose first component is there
/// anyway, and `/x/a` becomes `\x\a`; what begins with a drive, "." or ".." keeps its beginning.
/// Where the slash is the system's separator a name that holds a backslash can't be said: the
/// library takes it for two names.
inline std::string HostPath(const std::string& strPath) {
    const std::filesystem::path aPath(strPath);
    const bool bAnchored = aPath.has_root_path() ||
                           (!aPath.empty() && (*aPath.begin() == std::filesystem::path(".") ||
                                               *aPath.begin() == std::filesystem::path("..")));
    std::string strResult = bAnchored ? strPath : "./" + strPath;
    std::replace(strResult.begin(), strResult.end(), '/', '\\');
    return strResult;
}

/// The same for a directory: it ends with a backslash, so that a name can be put behind it. An
/// empty one is the current directory.
inline std::string HostDirectory(const std::string& strPath) {
    std::string strResult = HostPath(strPath);
    if (strResult.back() != '\\') strResult += '\\';
    return strResult;
}
