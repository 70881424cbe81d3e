#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <climits>
#include <string>

#include "platform/CmText.h"

bool CmUtf8ToLocal(CCmString& strText) {
    // The code page UTF-8 does not accept the arguments that detect a lossy conversion.
    if (strText.empty() || ::GetACP() == CP_UTF8) return true;
    if (strText.size() > INT_MAX) return false;
    const int nLength = static_cast<int>(strText.size());
    const int nWide =
        ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, strText.data(), nLength, nullptr, 0);
    if (nWide <= 0) return false;
    std::wstring strWide(static_cast<std::size_t>(nWide), L'\0');
    ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, strText.data(), nLength, &strWide[0],
                          nWide);
    BOOL bLossy = FALSE;
    const int nLocal = ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, strWide.data(), nWide,
                                             nullptr, 0, nullptr, &bLossy);
    if (nLocal <= 0 || bLossy) return false;
    CCmString strLocal(static_cast<std::size_t>(nLocal), '\0');
    ::WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, strWide.data(), nWide, &strLocal[0], nLocal,
                          nullptr, nullptr);
    strText.swap(strLocal);
    return true;
}
