#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>

/// The limits that the user set. 0: none. Times are in milliseconds.
struct tagLimits {
    std::uint64_t qwDuration = 0;
    std::uint64_t qwMaxBytes = 0;
    std::uint64_t qwMinFree = 0;
    std::uint64_t qwSplitBytes = 0;
    std::uint64_t qwSplitTime = 0;

    bool IsSplit() const { return qwSplitBytes > 0 || qwSplitTime > 0; }
};

/// Decides when a recording ends, and when its next part begins.
///
/// The loop of the record command owns it; one thread uses it. It reads the clock and the free
/// space. If the free space is unknown, it is not limited.
class CLimits {
 public:
    explicit CLimits(const tagLimits& aLimits) : m_limits(aLimits) {}

    /// A new part begins in this directory. Up to qwGathered bytes that were counted may not be
    /// written or pending yet.
    void BeginPart(std::filesystem::path aDirectory, std::uint64_t qwGathered);

    /// Counts bytes that were taken from an input.
    void Count(std::size_t nBytes);

    /// Why the recording ends now ("duration", "max-bytes", "min-free"), or null.
    const char* FindEnd();

    /// Whether the part cannot take a byte of a stream that has qwStream bytes in it.
    bool IsPartFull(std::uint64_t qwStream) const;

    /// How many bytes, at most nPiece, may be read from this stream. If the part is full for it,
    /// they belong to the next part.
    std::size_t Clip(std::size_t nPiece, std::uint64_t qwStream) const;

    /// How long to wait for inputs in milliseconds; -1 for any time.
    int GetTimeout() const;

 private:
    using Clock = std::chrono::steady_clock;

    std::uint64_t GetPartRoom(std::uint64_t qwStream) const;
    bool IsSpaceLow();

    const tagLimits m_limits;
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_partBegin;
    std::filesystem::path m_directory;
    std::uint64_t m_qwGathered = 0;
    std::uint64_t m_qwTotal = 0;
    std::uint64_t m_qwPart = 0;
    std::uint64_t m_qwLookAt = 0;  // of m_qwTotal: the next look at the free space
    Clock::time_point m_lookTime;
};

/// The free space in bytes, or nothing if it is unknown.
std::optional<std::uint64_t> FreeSpace(const std::filesystem::path& aDirectory);
