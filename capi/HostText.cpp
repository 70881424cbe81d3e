#include "capi/HostText.h"

#include <algorithm>
#include <filesystem>

#include "platform/CmText.h"

namespace {

/// Whether the backslash is also the system's separator, as on Windows, where paths have drives.
constexpr bool c_bBackslashSeparates = std::filesystem::path::preferred_separator == L'\\';

/// Whether the first component of a path always exists. The library does not create the first
/// component, so other paths get ".\" in front of it.
bool IsAnchored(const CCmString& strPath) {
    const CCmString strFirst = strPath.substr(0, strPath.find('\\'));
    const bool bDrive = c_bBackslashSeparates && strFirst.size() >= 2 && strFirst[1] == ':';
    return strPath.empty() || strFirst.empty() || strFirst == "." || strFirst == ".." || bDrive;
}

bool TakeSeparators(const char* lpPath, CCmString& strPath) {
    if (!lpPath) return false;
    strPath = lpPath;
    if (!c_bBackslashSeparates && strPath.find('\\') != CCmString::npos) return false;
    std::replace(strPath.begin(), strPath.end(), '/', '\\');
    return true;
}

}  // namespace

bool capi::TakeName(const char* lpName, CCmString& strName) {
    return TakeSeparators(lpName, strName) && CmUtf8ToLocal(strName);
}

bool capi::TakeUtf8Path(const char* lpPath, CCmString& strPath) {
    if (!TakeSeparators(lpPath, strPath)) return false;
    if (!IsAnchored(strPath)) strPath.insert(0, ".\\");
    return true;
}

bool capi::TakeLocalPath(const char* lpPath, CCmString& strPath) {
    return TakeUtf8Path(lpPath, strPath) && CmUtf8ToLocal(strPath);
}

bool capi::TakeDirectory(const char* lpPath, CCmString& strPath) {
    if (!TakeLocalPath(lpPath, strPath)) return false;
    if (strPath.empty()) strPath = ".";
    if (strPath.back() != '\\') strPath += '\\';
    return true;
}
