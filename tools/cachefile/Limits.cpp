#include "tools/cachefile/Limits.h"

#include <algorithm>
#include <limits>

#include "core/CacheFileManager.h"
#include "tools/cachefile/Streams.h"

namespace {

constexpr std::uint64_t c_qwNoLimit = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t c_qwLongestStream = c_qwPlayable - 1;

/// The fewest bytes between two looks at the free space, so that a recording near its limit does
/// not make a system call for every few bytes.
constexpr std::uint64_t c_qwLeastStep = 65536;
constexpr auto c_aLookInterval = std::chrono::seconds(1);

/// In milliseconds. A wait takes an int, and one wake-up an hour costs nothing.
constexpr std::uint64_t c_qwLongestWait = 3600000;

std::uint64_t Difference(std::uint64_t qwA, std::uint64_t qwB) { return qwA > qwB ? qwA - qwB : 0; }

template <class Duration>
std::uint64_t Milliseconds(Duration aTime) {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(aTime).count());
}

}  // namespace

void CLimits::BeginPart(std::filesystem::path aDirectory, std::uint64_t qwGathered) {
    m_directory = std::move(aDirectory);
    m_qwGathered = qwGathered;
    m_qwPart = 0;
    m_partBegin = Clock::now();
    m_qwLookAt = m_qwTotal;
}

void CLimits::Count(std::size_t nBytes) {
    m_qwTotal += nBytes;
    m_qwPart += nBytes;
}

const char* CLimits::FindEnd() {
    if (m_limits.qwMaxBytes > 0 && m_qwTotal >= m_limits.qwMaxBytes) return "max-bytes";
    if (m_limits.qwDuration > 0 && Milliseconds(Clock::now() - m_begin) >= m_limits.qwDuration)
        return "duration";
    return m_limits.qwMinFree > 0 && IsSpaceLow() ? "min-free" : nullptr;
}

/// Looks again after half of the space that may be used, so that it is never used completely
/// between two looks, and once a second, because others may use it too.
bool CLimits::IsSpaceLow() {
    const Clock::time_point aNow = Clock::now();
    if (m_qwTotal < m_qwLookAt && aNow < m_lookTime) return false;
    const auto qwFree = FreeSpace(m_directory);
    if (!qwFree) return false;
    const std::uint64_t qwNotWritten = CCacheFileManager::GetPendingBytes() + m_qwGathered;
    const std::uint64_t qwUsable =
        Difference(Difference(*qwFree, qwNotWritten), m_limits.qwMinFree);
    m_qwLookAt = m_qwTotal + qwUsable / 2;
    m_lookTime = aNow + c_aLookInterval;
    return qwUsable < 2 * c_qwLeastStep;  // a step may be read before the next look
}

std::uint64_t CLimits::GetPartRoom(std::uint64_t qwStream) const {
    if (!m_limits.IsSplit()) return c_qwNoLimit;
    if (m_qwPart > 0 && m_limits.qwSplitTime > 0 &&
        Milliseconds(Clock::now() - m_partBegin) >= m_limits.qwSplitTime)
        return 0;
    const std::uint64_t qwStreamRoom = Difference(c_qwLongestStream, qwStream);
    return m_limits.qwSplitBytes == 0
               ? qwStreamRoom
               : std::min(qwStreamRoom, Difference(m_limits.qwSplitBytes, m_qwPart));
}

bool CLimits::IsPartFull(std::uint64_t qwStream) const { return GetPartRoom(qwStream) == 0; }

std::size_t CLimits::Clip(std::size_t nPiece, std::uint64_t qwStream) const {
    std::uint64_t qwRoom = GetPartRoom(qwStream);
    if (qwRoom == 0) qwRoom = m_limits.qwSplitBytes > 0 ? m_limits.qwSplitBytes : c_qwNoLimit;
    if (m_limits.qwMaxBytes > 0)
        qwRoom = std::min(qwRoom, Difference(m_limits.qwMaxBytes, m_qwTotal));
    if (m_limits.qwMinFree > 0)
        qwRoom = std::min(qwRoom, std::max(c_qwLeastStep, Difference(m_qwLookAt, m_qwTotal)));
    return static_cast<std::size_t>(std::min<std::uint64_t>(nPiece, qwRoom));
}

int CLimits::GetTimeout() const {
    if (m_limits.qwDuration == 0) return -1;
    const std::uint64_t qwLeft =
        Difference(m_limits.qwDuration, Milliseconds(Clock::now() - m_begin));
    // One more, because Milliseconds rounds down and the loop would wake too early.
    return static_cast<int>(std::min(qwLeft + 1, c_qwLongestWait));
}

std::optional<std::uint64_t> FreeSpace(const std::filesystem::path& aDirectory) {
    std::error_code aError;
    const std::filesystem::space_info aSpace = std::filesystem::space(aDirectory, aError);
    if (aError) return {};
    return aSpace.available;
}
