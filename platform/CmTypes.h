#pragma once

#include <cstdint>
#include <string>

/// The 32-bit integers of the public signatures. They are exactly 32 bits wide everywhere. On
/// Windows they are `long` and `unsigned long`, which hosts there are written with.
#if defined(_WIN32)
using CmInt32 = long;
using CmUint32 = unsigned long;
#else
using CmInt32 = std::int32_t;
using CmUint32 = std::uint32_t;
#endif

static_assert(sizeof(CmInt32) == 4 && sizeof(CmUint32) == 4, "file offsets are 32 bits wide");

/// A string of 8-bit characters: paths, and bytes on their way to a file (zero bytes included).
using CCmString = std::string;
