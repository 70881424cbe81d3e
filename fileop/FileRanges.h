#pragma once

#include <vector>

#include "core/FileLosses.h"

/// Ranges of a file, sorted, and the sum of the bytes that were added. Ranges that touch or overlap
/// become one.
///
/// A value without a lock. Adding never fails: if there is no memory, or if there are too many
/// ranges, only the sum grows.
class CFileRanges {
 public:
    static constexpr std::size_t c_nMaxRanges = 1024;

    /// bInPlace non-zero: the bytes are in the file. A range is joined with one that begins where
    /// it ends, or that overlaps it; the sum counts the common bytes twice. 0: the bytes are
    /// missing at the offset, and ranges at the same offset are joined.
    explicit CFileRanges(int bInPlace) : m_bInPlace(bInPlace) {}

    /// At most nMax ranges are kept.
    void Add(std::uint64_t qwOffset, std::uint64_t qwLength,
             std::size_t nMax = c_nMaxRanges) noexcept;
    void AddAll(const CFileRanges& aOther, std::size_t nMax = c_nMaxRanges) noexcept;

    /// Moves the ranges that begin after qwOffset by qwLength towards the beginning.
    void ShiftTowardsStart(std::uint64_t qwOffset, std::uint64_t qwLength) noexcept;

    void Clear() noexcept;
    void Swap(CFileRanges& aOther) noexcept;  // of the same kind

    std::uint64_t Bytes() const { return m_qwBytes; }
    bool IsComplete() const { return m_bComplete; }
    const std::vector<tagFileHole>& Get() const { return m_vecRanges; }

 private:
    std::uint64_t EndOf(const tagFileHole& aRange) const;
    void Join(tagFileHole& aRange, const tagFileHole& aOther) const;

    const int m_bInPlace;
    std::uint64_t m_qwBytes = 0;
    bool m_bComplete = true;  // m_vecRanges shows all of m_qwBytes
    std::vector<tagFileHole> m_vecRanges;
};
