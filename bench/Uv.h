#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Makes nCount reads of nLength bytes through libuv's thread pool, nInFlight at a time, at the
/// offsets that aNext returns. Returns when all reads have ended.
void ReadWithUv(const std::string& strPath, std::size_t nCount, std::size_t nLength,
                std::size_t nInFlight, const std::function<std::uint64_t()>& aNext);
