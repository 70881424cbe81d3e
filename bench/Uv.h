#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Reads nCount runs of nLength bytes through libuv's file pool, nInFlight at a time, at the
/// offsets that aNext gives. Returns when all have been delivered.
void ReadWithUv(const std::string& strPath, std::size_t nCount, std::size_t nLength,
                std::size_t nInFlight, const std::function<std::uint64_t()>& aNext);
