#pragma once

#include <cstddef>
#include <cstdint>

/// What the targets share.

/// Makes the bytes of a run the memory file. They are a container but for three fields of its
/// header that readers ignore, which shape the file further:
///
///     bytes 0, 1 and 2   where a run of bad bytes begins, in units of 8, and how many bytes it has
///     bytes 4, 5         the first entries, so many, are there so many times more
///
/// The count of entries is cut down, as long lists only take time; one run in some thousands keeps
/// it. Returns a number that is as good as random, the same one for the same bytes.
std::uint64_t ShapeFile(const std::uint8_t* lpBytes, std::size_t dwSize);

/// Ends the process, so that the fuzzer keeps the bytes, unless bHolds.
void Require(bool bHolds, const char* lpWhat);
