#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

#include "bench/Archives.h"
#include "bench/Bench.h"
#include "bench/Clock.h"
#include "bench/ContainerPlayer.h"
#include "tools/HostPath.h"

/// The time to open a container. With many entries it consists mostly of page faults, which a
/// process with a used heap does not have. So each sample is taken in a new process.

namespace {

constexpr std::size_t c_nEntries = 100'000;
constexpr std::size_t c_nFew = 10;
constexpr std::size_t c_nRawBlock = 32 * 1024;

const char* IndexName(CmUint32 dwIndexType) {
    return dwIndexType == Index_Packed ? "packed" : "chained";
}

std::string PathOf(const tagBenchOptions& aOptions, const std::string& strName) {
    return aOptions.strDirectory + "/opening-" + strName;
}

/// Opens the file, reads its first nBytes bytes in blocks of 32 KiB into memory, and closes it. A
/// player keeps the index too, so the bytes are kept.
std::unique_ptr<unsigned char[]> ReadRaw(const std::string& strPath, std::size_t nBytes) {
    std::unique_ptr<unsigned char[]> pBytes(new unsigned char[nBytes]);
    const int nFile = ::open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    Require(nFile >= 0, "open");
    for (std::size_t nAt = 0; nAt < nBytes; nAt += c_nRawBlock) {
        const std::size_t nLength = std::min(c_nRawBlock, nBytes - nAt);
        Require(::pread(nFile, &pBytes[nAt], nLength, static_cast<off_t>(nAt)) > 0, "pread");
    }
    ::close(nFile);
    return pBytes;
}

constexpr std::size_t IndexSize(std::size_t nEntries) {
    return c_dwFileHeaderSize + nEntries * c_dwEntrySize;
}

long PageFaults() {
    rusage aUsage{};
    ::getrusage(RUSAGE_SELF, &aUsage);
    return aUsage.ru_minflt;
}

/// Opens a container with many entries, and reads from one of its streams if bRead is set. The
/// player is destroyed after the measurement.
template <class Report>
void OpenMany(const std::string& strPath, bool bAsync, bool bRead, Report aReport) {
    const std::string strHostPath = HostPath(strPath);
    const std::uint64_t qwBegin = CClock::Now();
    CContainerPlayer aPlayer(strHostPath, bAsync);
    if (bRead) aPlayer.Read(c_nEntries / 2);
    aReport(CClock::Now() - qwBegin, aPlayer.Size());
}

/// Any other format: aOpen returns the number of streams.
template <class Open, class Report>
void OpenOther(const std::string& strPath, Open aOpen, Report aReport) {
    const std::uint64_t qwBegin = CClock::Now();
    const std::size_t nFound = aOpen(strPath);
    aReport(CClock::Now() - qwBegin, nFound);
}

std::size_t ReadRawIndex(const std::string& strPath) {
    const auto pBytes = ReadRaw(strPath, IndexSize(c_nEntries));
    return pBytes ? c_nEntries : 0;
}

template <class Open>
Metrics RepeatedOpen(std::size_t nTimes, Open aOpen) {
    const std::uint64_t qwBegin = CClock::Now();
    for (std::size_t i = 0; i < nTimes; ++i) aOpen();
    return {
        {"an open", CClock::ToNanoseconds(CClock::Now() - qwBegin) / static_cast<double>(nTimes)}};
}

void AddFew(tagBench& aBench) {
    const char* const lpWorkload = "open 10 entries";
    const std::string strPath = PathOf(aBench.aOptions, "few");
    MakeContainer(HostPath(strPath), c_nFew);
    const std::size_t nTimes = aBench.Amount(20'000);
    aBench.vecContestants.push_back({lpWorkload, "cachefile sync", [=] {
                                         const std::string strHostPath = HostPath(strPath);
                                         return RepeatedOpen(nTimes, [&] {
                                             CContainerPlayer aPlayer(strHostPath, false);
                                             Require(aPlayer.Size() == c_nFew, "all entries");
                                         });
                                     }});
    aBench.vecContestants.push_back(
        {lpWorkload, "open, pread, close",
         [=] { return RepeatedOpen(nTimes, [&] { ReadRaw(strPath, IndexSize(c_nFew)); }); }});
    aBench.vecFigures.push_back({"opening 10 entries", "an open", lpWorkload, "cachefile sync",
                                 lpWorkload, "open, pread, close", 1.5});
}

/// The median of some new processes.
Metrics OpenInNewProcesses(const tagBench& aBench, const std::string& strWork) {
    constexpr std::size_t c_nProcesses = 9;
    std::vector<double> vecTimes, vecFaults;
    for (std::size_t i = 0; i < c_nProcesses; ++i) {
        const Metrics aMetrics = RunChild(aBench, strWork);
        vecTimes.push_back(aMetrics.at("ticks"));
        vecFaults.push_back(aMetrics.at("page faults"));
    }
    const double dTime = CClock::ToNanoseconds(static_cast<std::uint64_t>(Median(vecTimes)));
    return {{"an entry", dTime / double{c_nEntries}}, {"page faults", Median(vecFaults)}};
}

}  // namespace

/// The name of the work has up to three words: the format or the index, the mode, and "read".
void MeasureOpening(const tagBenchOptions& aOptions) {
    const auto has = [&](const char* lpWord) {
        return aOptions.strChild.find(lpWord) != std::string::npos;
    };
    const std::string strPath =
        PathOf(aOptions, aOptions.strChild.substr(0, aOptions.strChild.find(' ')));
    const long nFaults = PageFaults();
    const auto report = [&](std::uint64_t qwTicks, std::size_t nFound) {
        Require(nFound == c_nEntries, "all entries");
        std::printf("ticks=%.0f\npage faults=%ld\n", static_cast<double>(qwTicks),
                    PageFaults() - nFaults);
    };
#ifdef BENCH_SQLITE
    if (has("sqlite")) return OpenOther(strPath, OpenSqlite, report);
#endif
#ifdef BENCH_LIBZIP
    if (has("zip")) return OpenOther(strPath, OpenZip, report);
#endif
    if (has("raw")) return OpenOther(strPath, ReadRawIndex, report);
    OpenMany(strPath, has("async"), has("read"), report);
}

void AddOpening(tagBench& aBench) {
    const std::string strOpen = "open 100,000 entries";
    const std::string strRead = "open 100,000 entries, first read";
    const auto add = [&aBench](const std::string& strWorkload, const char* lpName,
                               const std::string& strWork) {
        aBench.vecContestants.push_back({strWorkload, lpName, [&aBench, strWork] {
                                             return OpenInNewProcesses(aBench, strWork);
                                         }});
    };
    for (const CmUint32 dwIndexType : {Index_Packed, Index_Chained}) {
        const std::string strIndex = IndexName(dwIndexType);
        const std::string strWorkload = strOpen + ", " + strIndex;
        MakeContainer(HostPath(PathOf(aBench.aOptions, strIndex)), c_nEntries, dwIndexType);
        add(strWorkload, "cachefile sync", strIndex + " sync");
        add(strWorkload, "raw reads", strIndex + " raw");
        aBench.vecFigures.push_back({"opening 100,000 entries, " + strIndex, "an entry",
                                     strWorkload, "cachefile sync", strWorkload, "raw reads",
                                     dwIndexType == Index_Packed ? 2.2 : 2.8});
    }
    add(strRead, "cachefile sync", "packed sync read");
    add(strRead, "cachefile async", "packed async read");
#ifdef BENCH_SQLITE
    MakeSqlite(PathOf(aBench.aOptions, "sqlite"), c_nEntries);
    add(strRead, "SQLite", "sqlite");
    aBench.vecFigures.push_back({"opening 100,000 entries, first read", "an entry", strRead,
                                 "cachefile sync", strRead, "SQLite", 0.17});
#endif
#ifdef BENCH_LIBZIP
    MakeZip(PathOf(aBench.aOptions, "zip"), c_nEntries);
    add(strRead, "libzip", "zip");
#endif
    AddFew(aBench);
}
