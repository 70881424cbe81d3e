#pragma once

#include <cstddef>
#include <string>

#include "platform/CmPlace.h"

/// Definitions that several sources for Windows use.

/// Returns the errno for the system's last error, as the runtime would set it.
int ErrnoFromSystem();

/// strBase replaces the first nReplaced characters of a path.
struct CmPlace::tagDirectory {
    std::wstring strBase;
    std::size_t nReplaced;
};
