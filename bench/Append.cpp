#include <unistd.h>

#include <algorithm>

#include "bench/Appender.h"
#include "bench/Clock.h"

/// Workloads of a recorder: small and large appends, in bursts and at a steady rate, to a few files
/// and to many.

namespace {

constexpr std::size_t c_nPiece = 1000;
constexpr std::size_t c_nLargePiece = 65536;
constexpr char c_szLimited[] = "cachefile async, limit 4 MiB";
constexpr char c_szRoom[] = "cachefile async, limit 512 KiB";
constexpr char c_szPolled[] = "cachefile async, limit 512 KiB, polling";
constexpr std::uint64_t c_qwSmallLimit = 512U << 10;
constexpr char c_szAsyncAge[] = "cachefile async, age 100 ms";
constexpr char c_szSyncAge[] = "cachefile sync, age 100 ms";
constexpr double c_dPacedRate = 0.4;  // bytes per nanosecond: 400 MB/s

std::vector<std::string> Paths(const tagBench& aBench, std::size_t nFiles) {
    std::vector<std::string> vecPaths;
    for (std::size_t i = 0; i < nFiles; ++i)
        vecPaths.push_back(aBench.Path("append-" + std::to_string(i)));
    return vecPaths;
}

/// The state of one run. Its files are removed at the end.
class CRun {
 public:
    CRun(const tagBench& aBench, const tagAppends& aAppends, const MakeAppender& aMake)
        : m_nFirst(aAppends.nFirst),
          m_vecPaths(Paths(aBench, aAppends.nFiles)),
          m_strPiece(aAppends.nPiece, 'x'),
          m_pAppender(aMake(m_vecPaths)) {}
    ~CRun() {
        for (const std::string& strPath : m_vecPaths) ::unlink(strPath.c_str());
    }
    void Append(std::size_t i) {
        m_pAppender->Append(FileOf(i), m_strPiece.data(), m_strPiece.size());
    }
    void Finish() { m_pAppender->Finish(); }

 private:
    std::size_t FileOf(std::size_t i) const {
        if (m_nFirst == 0) return i % m_vecPaths.size();
        return i % (m_nFirst + 1) < m_nFirst ? 0 : 1 + i / (m_nFirst + 1) % (m_vecPaths.size() - 1);
    }

    const std::size_t m_nFirst;
    const std::vector<std::string> m_vecPaths;
    const std::string m_strPiece;
    const std::unique_ptr<IAppender> m_pAppender;
};

}  // namespace

Metrics RunPaced(const tagBench& aBench, const tagAppends& aAppends, const MakeAppender& aMake,
                 double dRate) {
    CRun aRun(aBench, aAppends, aMake);
    const std::uint64_t qwInterval = CClock::ToTicks(static_cast<double>(aAppends.nPiece) / dRate);
    // Filled with ones, so that no page fault occurs during the measurement.
    std::vector<std::uint64_t> vecCosts(aAppends.nCount, 1);
    std::uint64_t qwNext = CClock::Now();
    for (std::size_t i = 0; i < aAppends.nCount; ++i, qwNext += qwInterval) {
        while (CClock::Now() < qwNext) CClock::Pause();
        // The clock is read again, because the end of the loop costs a branch misprediction, which
        // is not part of the append.
        const std::uint64_t qwBegin = CClock::Now();
        aRun.Append(i);
        vecCosts[i] = CClock::Now() - qwBegin;
    }
    aRun.Finish();

    std::uint64_t qwSum = 0;
    for (std::uint64_t& qwCost : vecCosts) {
        qwCost -= std::min(qwCost, CClock::Overhead());
        qwSum += qwCost;
    }
    std::sort(vecCosts.begin(), vecCosts.end());
    const auto at = [&](double dPart) {
        return CClock::ToNanoseconds(
            vecCosts[static_cast<std::size_t>(dPart * static_cast<double>(vecCosts.size() - 1))]);
    };
    return {{"mean", CClock::ToNanoseconds(qwSum) / static_cast<double>(vecCosts.size())},
            {"p50", at(0.5)},
            {"p99", at(0.99)},
            {"p99.9", at(0.999)},
            {"max", at(1.0)}};
}

namespace {

Metrics RunFast(const tagBench& aBench, const tagAppends& aAppends, const MakeAppender& aMake) {
    return RunPaced(aBench, aAppends, aMake, c_dPacedRate);
}

/// Appends as fast as possible, and measures the time until every byte is in the kernel.
Metrics RunBurst(const tagBench& aBench, const tagAppends& aAppends, const MakeAppender& aMake) {
    CRun aRun(aBench, aAppends, aMake);
    const std::uint64_t qwBegin = CClock::Now();
    for (std::size_t i = 0; i < aAppends.nCount; ++i) aRun.Append(i);
    const double dCaller = CClock::ToNanoseconds(CClock::Now() - qwBegin);
    aRun.Finish();
    const double dTime = CClock::ToNanoseconds(CClock::Now() - qwBegin);
    return {{"an append", dTime / static_cast<double>(aAppends.nCount)},
            {"on the caller", dCaller / static_cast<double>(aAppends.nCount)}};
}

MakeAppender WithAge(bool bAsync) {
    tagLibraryUse aUse;
    aUse.bAsync = bAsync;
    aUse.dwGatherAge = 100;
    return Library(aUse);
}

std::vector<tagAppenderKind> AllKinds() {
    return {
        {"cachefile async", Library({true})},
        {"cachefile sync", Library({false})},
        {"stdio 32 KiB", [](const auto& vecPaths) { return MakeStdio(vecPaths); }},
        {"write, gathered", MakeGather},
        {"double buffer",
         [](const auto& vecPaths) { return MakeHandOver(vecPaths, HandOver_Sleeping); }},
        {"double buffer, napping",
         [](const auto& vecPaths) { return MakeHandOver(vecPaths, HandOver_Napping); }},
#ifdef BENCH_LEVELDB
        {"LevelDB env", MakeLevelDb},
#endif
#ifdef BENCH_LIBUV
        {"libuv", MakeUv},
#endif
    };
}

}  // namespace

void AddAppends(tagBench& aBench) {
    const auto add = [&](const char* lpWorkload, const tagAppenderKind& aKind,
                         const tagAppends& aAppends, auto aRun) {
        aBench.vecContestants.push_back(
            {lpWorkload, aKind.lpName,
             [&aBench, aAppends, aRun, aKind] { return aRun(aBench, aAppends, aKind.aMake); }});
    };
    const tagAppends aSmall{4, c_nPiece, aBench.Amount(200'000)};
    const tagAppends aLarge{4, c_nLargePiece, aBench.Amount(2'000)};
    for (const tagAppenderKind& aKind : AllKinds()) add("append, paced", aKind, aSmall, RunFast);
    add("append, paced", {"memcpy", MakeMemcpy}, aSmall, RunFast);
    add("append, paced", {c_szAsyncAge, WithAge(true)}, aSmall, RunFast);
    add("append, paced", {c_szSyncAge, WithAge(false)}, aSmall, RunFast);
    for (const tagAppenderKind& aKind : AllKinds()) add("append, burst", aKind, aSmall, RunBurst);
    add("append, burst",
        {"double buffer, whole pieces",
         [](const auto& vecPaths) { return MakeHandOver(vecPaths, HandOver_WholePieces); }},
        aSmall, RunBurst);
    for (const tagAppenderKind& aKind :
         {tagAppenderKind{c_szLimited, Library({true, c_qwLimit})},
          tagAppenderKind{c_szRoom, Library({true, c_qwSmallLimit})},
          tagAppenderKind{c_szPolled, Library({true, c_qwSmallLimit, false})}})
        add("append, burst", aKind, aSmall, RunBurst);
    const tagAppends aOne{1, c_nPiece, aBench.Amount(200'000)};
    const tagAppends aDominant{4, c_nPiece, aBench.Amount(200'000), 15};
    for (const tagAppenderKind& aKind : AllKinds()) {
        add("append, burst, one file", aKind, aOne, RunBurst);
        add("append, burst, mostly one of four files", aKind, aDominant, RunBurst);
    }
    for (const tagAppenderKind& aKind : AllKinds())
        add("append 64 KiB, paced", aKind, aLarge, RunFast);
    add("append 64 KiB, paced", {"write", MakeDirect}, aLarge, RunFast);

    // More appends in all, so that the opens and the last, partial blocks matter little.
    const tagAppends aMany{1000, c_nPiece, aBench.Amount(400'000)};
    for (const tagAppenderKind& aKind : AllKinds())
        if (aKind.aMake && std::string(aKind.lpName).find("double") == std::string::npos)
            add("append, burst, 1,000 files", aKind, aMany, RunBurst);

    const char* const lpAsync = "cachefile async";
    const char* const lpSync = "cachefile sync";
    aBench.vecFigures.insert(
        aBench.vecFigures.end(),
        {{"asynchronous append, paced, mean", "mean", "append, paced", lpAsync, "append, paced",
          "stdio 32 KiB", 0.35},
         {"asynchronous append, paced, p99.9", "p99.9", "append, paced", lpAsync, "append, paced",
          "stdio 32 KiB", 0.35},
         {"asynchronous append, paced, with an age", "mean", "append, paced", c_szAsyncAge,
          "append, paced", lpAsync, 1.05},
         {"synchronous append, paced, with an age", "mean", "append, paced", c_szSyncAge,
          "append, paced", lpSync, 1.05},
         {"asynchronous append, burst", "an append", "append, burst", lpAsync, "append, burst",
          "write, gathered", 1.0},
         {"asynchronous append, burst, limit 4 MiB", "an append", "append, burst", c_szLimited,
          "append, burst", "write, gathered", 1.0},
         {"asynchronous append, burst, limit 512 KiB", "an append", "append, burst", c_szRoom,
          "append, burst", lpAsync, 1.15},
         {"asynchronous append, burst, woken when there is room", "an append", "append, burst",
          c_szRoom, "append, burst", c_szPolled, 0.5},
         {"asynchronous append, burst, one file", "an append", "append, burst, one file", lpAsync,
          "append, burst, one file", "write, gathered", 0.75},
         {"asynchronous append, burst, mostly one file", "an append",
          "append, burst, mostly one of four files", lpAsync,
          "append, burst, mostly one of four files", "write, gathered", 0.8},
         {"synchronous append, burst", "an append", "append, burst", lpSync, "append, burst",
          "write, gathered", 1.1},
         {"asynchronous append of 64 KiB, paced, mean", "mean", "append 64 KiB, paced", lpAsync,
          "append 64 KiB, paced", "write", 0.5},
         {"synchronous append, 1,000 files and 4", "an append", "append, burst, 1,000 files",
          lpSync, "append, burst", lpSync, 1.4}});
}
