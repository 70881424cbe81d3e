#pragma once

#include <cstddef>
#include <cstdint>

#include "tests/disk/MemoryDisk.h"

/// The parts that both targets use.

constexpr char c_szPath[] = "any.container";

/// The file with that name, on the disk in memory.
MemoryDisk::File& TheFile();

/// Makes that file from the bytes of a run. They are a container, but three fields of its header
/// that readers ignore change the file:
///
///     bytes 0, 1 and 2   the offset of a range of bad bytes, in units of 8, and its length
///     bytes 4, 5         how many of the first entries are repeated, and how often
///
/// The number of entries is reduced, because long lists only take time; one run in some thousands
/// keeps it. Returns a pseudo-random number that depends only on the bytes.
std::uint64_t ShapeFile(const std::uint8_t* lpBytes, std::size_t dwSize);

/// Ends the process if bHolds is false, so that the fuzzer saves the input.
void Require(bool bHolds, const char* lpWhat);
