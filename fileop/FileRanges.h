#pragma once

#include <vector>

#include "core/FileLosses.h"

/// Ranges of a file, sorted, and the sum of their bytes. Ranges that touch become one.
///
/// A value without a lock. Adding never fails: where there is no memory, or too many ranges, only
/// the sum grows.
class CFileRanges {
 public:
    static constexpr std::size_t c_nMost = 1024;

    /// bInPlace non-zero: the bytes take up a place in the file, and ranges touch where one ends
    /// and the other begins. 0: they are missing there, and those at one offset are one.
    explicit CFileRanges(int bInPlace) : m_bInPlace(bInPlace) {}

    /// At most nMost ranges are kept.
    void Add(std::uint64_t qwOffset, std::uint64_t qwLength, std::size_t nMost = c_nMost) noexcept;
    void AddAll(const CFileRanges& aOther, std::size_t nMost = c_nMost) noexcept;

    /// Moves the ranges that begin after qwOffset by qwLength towards the beginning.
    void MoveUp(std::uint64_t qwOffset, std::uint64_t qwLength) noexcept;

    void Clear() noexcept;
    void Swap(CFileRanges& aOther) noexcept;  // of the same kind

    std::uint64_t Bytes() const { return m_qwBytes; }
    bool IsComplete() const { return m_bComplete; }
    const std::vector<tagFileHole>& Get() const { return m_vecRanges; }

 private:
    bool IsTouching(const tagFileHole& aFirst, const tagFileHole& aSecond) const;

    const int m_bInPlace;
    std::uint64_t m_qwBytes = 0;
    bool m_bComplete = true;  // m_vecRanges shows all of m_qwBytes
    std::vector<tagFileHole> m_vecRanges;
};
