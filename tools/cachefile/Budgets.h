#pragma once

#include <cstddef>
#include <cstdint>

// What the tool spends on one recording, which anyone may have made. docs/limits.md lists these
// numbers together with those of the library. Good recordings stay far below them.

/// Lines that a command writes about single streams to standard error.
constexpr std::uint64_t c_qwMaxWarnings = 1000;

/// Findings of one code that `doctor` shows, and of all codes together with --all.
constexpr std::uint64_t c_qwMaxOfACode = 100;
constexpr std::uint64_t c_qwMaxFindings = 1000000;

/// Files that `extract` and `recover` make without --max-files.
constexpr std::uint64_t c_qwMaxFiles = 65536;

/// Parts of a container that the page of `map` shows.
constexpr std::size_t c_nMaxPageParts = 262144;

/// A JSON file, such as recording.json: its bytes, its values, and how deep they are nested.
constexpr std::uintmax_t c_nMaxJsonSize = 64 << 20;
constexpr std::size_t c_nMaxJsonValues = 2097152;
constexpr std::size_t c_nMaxJsonDepth = 32;

/// The characters that are shown of a text of the notes.
constexpr std::size_t c_nMaxNoteText = 1000;
