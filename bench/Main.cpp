#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>
#include <vector>

#include "bench/Bench.h"
#include "bench/Clock.h"

namespace {

constexpr char c_szUsage[] =
    "usage: cachefile_bench [--directory DIR] [--json FILE] [--only TEXT] [--repetitions N]\n"
    "                       [--scale X]\n";

tagBenchOptions ParseOptions(int argc, char** argv) {
    tagBenchOptions aOptions;
    for (int i = 1; i < argc; i += 2) {
        const std::string strOption = argv[i];
        if (i + 1 == argc) throw std::runtime_error(c_szUsage);
        const std::string strValue = argv[i + 1];
        if (strOption == "--directory")
            aOptions.strDirectory = strValue;
        else if (strOption == "--json")
            aOptions.strJson = strValue;
        else if (strOption == "--only")
            aOptions.strOnly = strValue;
        else if (strOption == "--child")
            aOptions.strChild = strValue;
        else if (strOption == "--repetitions")
            aOptions.nRepetitions = std::max(1, std::stoi(strValue));
        else if (strOption == "--scale")
            aOptions.dScale = std::stod(strValue);
        else
            throw std::runtime_error(c_szUsage);
    }
    return aOptions;
}

/// A directory that is removed at the end of the scope.
struct tagScratch {
    explicit tagScratch(const std::string& strParent) : strPath(strParent + "/cachefile-bench") {
        std::filesystem::remove_all(strPath);
        std::filesystem::create_directories(strPath);
    }
    ~tagScratch() {
        std::error_code aIgnored;
        std::filesystem::remove_all(strPath, aIgnored);
    }
    const std::string strPath;
};

/// Raises the limit of open files: one workload opens a thousand.
void AllowManyFiles() {
    rlimit aLimit{};
    ::getrlimit(RLIMIT_NOFILE, &aLimit);
    aLimit.rlim_cur = aLimit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &aLimit);
}

/// Runs all contestants once per repetition, so that a slow phase of the machine slows all of them.
/// The order is another one in each repetition, because a contestant also pays for what the one
/// before it left in the caches and on the disk.
void RunAll(tagBench& aBench) {
    std::vector<tagContestant*> vecWanted;
    for (tagContestant& aContestant : aBench.vecContestants)
        if (aContestant.strWorkload.find(aBench.aOptions.strOnly) != std::string::npos)
            vecWanted.push_back(&aContestant);
    std::mt19937 aRandom(1);  // all runs have the same orders
    for (int n = 0; n < aBench.aOptions.nRepetitions; ++n) {
        std::fprintf(stderr, "repetition %d of %d\n", n + 1, aBench.aOptions.nRepetitions);
        std::shuffle(vecWanted.begin(), vecWanted.end(), aRandom);
        for (tagContestant* const pContestant : vecWanted)
            for (const auto& [strMetric, dValue] : pContestant->aRun())
                pContestant->mapValues[strMetric].push_back(dValue);
    }
}

}  // namespace

const CClock::tagMeasured& CClock::Measured() {
    static const tagMeasured aMeasured = [] {
        using Steady = std::chrono::steady_clock;
        const auto aBegin = Steady::now();
        const std::uint64_t qwBegin = Now();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        const std::uint64_t qwEnd = Now();
        const std::chrono::duration<double, std::nano> aTime = Steady::now() - aBegin;
        std::vector<std::uint64_t> vecPairs(1001);
        for (std::uint64_t& qwPair : vecPairs) {
            const std::uint64_t qwFirst = Now();
            qwPair = Now() - qwFirst;
        }
        std::nth_element(vecPairs.begin(), vecPairs.begin() + 500, vecPairs.end());
        return tagMeasured{aTime.count() / static_cast<double>(qwEnd - qwBegin), vecPairs[500]};
    }();
    return aMeasured;
}

int main(int argc, char** argv) try {
    tagBenchOptions aOptions = ParseOptions(argc, argv);
    if (!aOptions.strChild.empty()) {
        (aOptions.strChild == c_szMemory ? MeasureMemory : MeasureOpening)(aOptions);
        return 0;
    }
    const tagScratch aScratch(aOptions.strDirectory);
    aOptions.strDirectory = aScratch.strPath;
    tagBench aBench{aOptions, argv[0], {}, {}};
    CClock::Overhead();  // calibrates the clock before the first workload
    AllowManyFiles();
    AddAppends(aBench);
    AddSyncedAppends(aBench);
    AddReads(aBench);
    AddContainers(aBench);
    AddOpening(aBench);
    AddMemory(aBench);
    RunAll(aBench);
    PrintTables(aBench);
    if (!aOptions.strJson.empty()) WriteJson(aBench);
    return 0;
} catch (const std::exception& aError) {
    std::fprintf(stderr, "cachefile_bench: %s\n", aError.what());
    return 1;
}
