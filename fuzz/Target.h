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

/// The most steps that a walk of the index may take, and the most bytes that it may read. A circle
/// is detected after a few rounds, so the number of steps is proportional to the size of the file
/// and independent of the header's count. Each step reads an entry and at most a conf header;
/// IndexReader.h limits the block reads.
std::uint64_t WalkSteps(const MemoryDisk::File& aFile);
std::uint64_t WalkBytes(const MemoryDisk::File& aFile);

/// Ends the process if bHolds is false, so that the fuzzer saves the input.
void Require(bool bHolds, const char* lpWhat);
