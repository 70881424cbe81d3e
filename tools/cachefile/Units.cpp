#include "tools/cachefile/Units.h"

#include <charconv>

namespace {

struct tagUnit {
    std::string_view strName;
    std::uint64_t qwFactor;
};

constexpr tagUnit c_aSizes[] = {
    {"", 1},          {"B", 1},       {"K", 1 << 10},   {"KiB", 1 << 10},  {"M", 1 << 20},
    {"MiB", 1 << 20}, {"G", 1 << 30}, {"GiB", 1 << 30}, {"T", 1ULL << 40}, {"TiB", 1ULL << 40}};
constexpr tagUnit c_aTimes[] = {{"ms", 1}, {"s", 1000}, {"min", 60000}, {"h", 3600000}};

template <std::size_t N>
std::optional<std::uint64_t> Parse(std::string_view strText, const tagUnit (&aUnits)[N]) {
    std::uint64_t qwNumber = 0;
    const char* const lpEnd = strText.data() + strText.size();
    const auto [lpUnit, aError] = std::from_chars(strText.data(), lpEnd, qwNumber);
    if (aError != std::errc() || qwNumber == 0) return {};
    const std::string_view strUnit(lpUnit, static_cast<std::size_t>(lpEnd - lpUnit));
    for (const tagUnit& aUnit : aUnits)
        if (strUnit == aUnit.strName && qwNumber <= ~std::uint64_t{0} / aUnit.qwFactor)
            return qwNumber * aUnit.qwFactor;
    return {};
}

}  // namespace

std::optional<std::uint64_t> ParseSize(std::string_view strText) {
    return Parse(strText, c_aSizes);
}

std::optional<std::uint64_t> ParseTime(std::string_view strText) {
    return Parse(strText, c_aTimes);
}
