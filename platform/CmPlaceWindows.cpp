#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <vector>

#include "platform/CmFileWindows.h"

namespace {

bool IsSeparator(char cCharacter) { return cCharacter == '\\' || cCharacter == '/'; }

/// Returns the whole path of lpPart, or an empty one with the system's last error.
std::wstring FullPath(const wchar_t* lpPart) {
    std::vector<wchar_t> vecPath(MAX_PATH);
    for (;;) {
        const DWORD dwLength =
            ::GetFullPathNameW(lpPart, static_cast<DWORD>(vecPath.size()), vecPath.data(), nullptr);
        if (dwLength < vecPath.size()) return {vecPath.data(), dwLength};
        vecPath.resize(dwLength);  // the current directory is longer
    }
}

}  // namespace

CmPlace CmPlace::Take(const CCmString& strPath) {
    CmPlace aPlace;
    const auto at = [&](std::size_t i) { return i < strPath.size() ? strPath[i] : '\0'; };
    const bool bDrive = at(1) == ':';
    const bool bAbsolute =
        (IsSeparator(at(0)) && IsSeparator(at(1))) || (bDrive && IsSeparator(at(2)));
    if (strPath.empty() || bAbsolute) return aPlace;
    const wchar_t aDrive[] = {static_cast<wchar_t>(at(0)), L':', L'\0'};
    const bool bRooted = IsSeparator(at(0));
    std::wstring strBase = FullPath(bDrive ? aDrive : bRooted ? L"\\" : L".");
    if (strBase.empty()) {
        aPlace.m_nErrno = ErrnoFromSystem();
        return aPlace;
    }
    if (strBase.back() != L'\\') strBase += L'\\';
    const std::size_t nReplaced = bDrive ? 2 : bRooted ? 1 : 0;
    aPlace.m_pDirectory =
        std::make_shared<const tagDirectory>(tagDirectory{std::move(strBase), nReplaced});
    return aPlace;
}
