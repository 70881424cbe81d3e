#include <memory>
#include <random>
#include <utility>

#include "bench/Bench.h"
#include "bench/Clock.h"
#include "bench/ContainerPlayer.h"
#include "core/DescriberTable.h"
#include "tools/HostPath.h"

/// The time that a read takes to find its stream among the streams of a container.

namespace {

constexpr std::size_t c_nEntries = 100'000;

std::vector<std::size_t> RandomOrder(std::size_t nEntries, std::size_t nCount) {
    std::mt19937_64 aRandom{7};
    std::uniform_int_distribution<std::size_t> aRange(0, nEntries - 1);
    std::vector<std::size_t> vecOrder(nCount);
    for (std::size_t& n : vecOrder) n = aRange(aRandom);
    return vecOrder;
}

/// Reads a few bytes at a time, so that finding the stream is a large part of the cost.
Metrics RouteReads(const std::string& strPath, std::size_t nEntries, std::size_t nCount) {
    CContainerPlayer aPlayer(strPath, false);
    const std::vector<std::size_t> vecOrder = RandomOrder(nEntries, nCount);
    for (std::size_t i = 0; i < nEntries; ++i) aPlayer.Read(i);
    const std::uint64_t qwBegin = CClock::Now();
    for (const std::size_t i : vecOrder) aPlayer.Read(i);
    return {
        {"a read", CClock::ToNanoseconds(CClock::Now() - qwBegin) / static_cast<double>(nCount)}};
}

/// Measures only the lookup of a stream by its description.
Metrics Route(std::size_t nEntries, std::size_t nCount) {
    CDescriberTable<tagMRFDInfo> aTable;
    for (std::size_t i = 0; i < nEntries; ++i) aTable.Add({DescriberOf(i), {}});
    const std::vector<std::size_t> vecOrder = RandomOrder(nEntries, nCount);
    std::size_t nFound = 0;
    const std::uint64_t qwBegin = CClock::Now();
    for (const std::size_t i : vecOrder) nFound += aTable.Find(InfoOf(i)) != nullptr;
    const double dTime = CClock::ToNanoseconds(CClock::Now() - qwBegin);
    Require(nFound == nCount, "all describers");
    return {{"a lookup", dTime / static_cast<double>(nCount)}};
}

/// Returns a function that calls aMake the first time only.
template <class Make>
std::function<void()> Once(Make aMake) {
    return [aMake, bMade = std::make_shared<bool>(false)] {
        if (!*bMade) aMake();
        *bMade = true;
    };
}

}  // namespace

void AddContainers(tagBench& aBench) {
    const std::string strMany = HostPath(aBench.Path("container-many"));
    const std::string strFew = HostPath(aBench.Path("container-few"));
    const auto makeMany = Once([strMany] { MakeContainer(strMany, c_nEntries); });
    const auto makeFew = Once([strFew] { MakeContainer(strFew, 10); });
    const auto add = [&](const char* lpWorkload, const char* lpName,
                         std::function<Metrics()> aRun) {
        aBench.vecContestants.push_back({lpWorkload, lpName, std::move(aRun)});
    };
    const std::size_t nReads = aBench.Amount(200'000);
    add("route a read of 16 bytes", "cachefile, 10 streams", [strFew, makeFew, nReads] {
        makeFew();
        return RouteReads(strFew, 10, nReads);
    });
    add("route a read of 16 bytes", "cachefile, 100,000 streams", [strMany, makeMany, nReads] {
        makeMany();
        return RouteReads(strMany, c_nEntries, nReads);
    });
    const std::size_t nLookups = aBench.Amount(1'000'000);
    add("route alone", "cachefile, 10 streams", [nLookups] { return Route(10, nLookups); });
    add("route alone", "cachefile, 100,000 streams",
        [nLookups] { return Route(c_nEntries, nLookups); });
    aBench.vecFigures.push_back({"routing a read, 100,000 streams and 10", "a read",
                                 "route a read of 16 bytes", "cachefile, 100,000 streams",
                                 "route a read of 16 bytes", "cachefile, 10 streams", 4.0});
}
