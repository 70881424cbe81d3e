#pragma once

#include <cstddef>
#include <string>

#include "platform/CmPlace.h"

/// What the sources for Windows share.

/// An errno for the failure of a call that doesn't set one, as the runtime would.
int ErrnoFromSystem();

/// What stands in place of the first nReplaced characters of a path.
struct CmPlace::tagDirectory {
    std::wstring strBase;
    std::size_t nReplaced;
};
