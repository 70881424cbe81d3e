#pragma once

#include <stdexcept>
#include <string>

#include "platform/CmResult.h"

/// Why the demonstration ends early: one line for the user.
class CDemoError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// "a file or a directory on the path does not exist (CACHE_ERR_NOT_FOUND, 4001)"
inline std::string ResultText(CmInt32 lResult) {
    return std::string(CacheFileResultText(lResult)) + " (" + CacheFileResultName(lResult) + ", " +
           std::to_string(lResult) + ")";
}

/// Throws unless the library answered 0.
inline void Check(const std::string& strStep, CmInt32 lResult) {
    if (lResult != CACHE_OK) throw CDemoError(strStep + ": " + ResultText(lResult));
}
