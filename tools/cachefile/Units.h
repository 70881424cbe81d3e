#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// Numbers with units, as they are written on the command line. The functions return nothing if the
// text is not of their form, or if the value is 0 or does not fit.

/// A number of bytes: "4096", "64K", "10MiB", "2G". The units are powers of 1024.
std::optional<std::uint64_t> ParseSize(std::string_view strText);

/// A time in milliseconds: "250ms", "10s", "5min", "2h". The unit is required.
std::optional<std::uint64_t> ParseTime(std::string_view strText);
