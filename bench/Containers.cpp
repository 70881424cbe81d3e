#include <cachefile.h>

#include <memory>
#include <random>
#include <utility>

#include "bench/Archives.h"
#include "bench/Bench.h"
#include "bench/Clock.h"
#include "core/DescriberTable.h"
#include "tools/HostPath.h"

/// Workloads of a player that opens one container with many streams: the time until the first read
/// has ended, and the time that a read takes to find its stream.

namespace {

constexpr std::size_t c_nEntries = 100'000;
constexpr CmUint32 c_dwStreamSize = 16;

tagFileDescriber DescriberOf(std::size_t i) {
    return {4, 4, static_cast<CmUint32>(i * 1000 + 4), 0};
}
tagDataInfo InfoOf(std::size_t i) { return {4, static_cast<CmUint32>(i * 1000 + 4), 0, 4}; }

void MakeContainer(const std::string& strPath, std::size_t nEntries) {
    CContainerWriter aWriter;
    const unsigned char aBytes[c_dwStreamSize] = {};
    for (std::size_t i = 0; i < nEntries; ++i)
        Require(aWriter.AddStream(DescriberOf(i), aBytes, c_dwStreamSize) == CACHE_OK, "AddStream");
    Require(aWriter.Write(HostPath(strPath)) == CACHE_OK, "CContainerWriter::Write");
}

/// A player with an open container, in either mode.
class CContainerPlayer final : private IFileOpSink {
 public:
    CContainerPlayer(const std::string& strPath, bool bAsync)
        : m_pHandler(CCacheFileManager::Instance().CreatePlayFileHandler(1, 1, bAsync)) {
        Require(m_pHandler && m_attached.GetResult() == CACHE_OK, "a play handler");
        m_pHandler->Initialize(this);
        Require(m_pHandler->OpenDownloadedFile(HostPath(strPath), m_vecStreams) == CACHE_OK,
                "OpenDownloadedFile");
    }
    ~CContainerPlayer() {
        m_pHandler->Destroy();
        CCmCallerThread::RunPending();
        delete[] m_lpBuffer;
    }

    std::size_t Size() const { return m_vecStreams.size(); }
    void Read(std::size_t i) {
        unsigned char* const lpBuffer = std::exchange(m_lpBuffer, nullptr);
        Require(m_pHandler->ReadData(InfoOf(i), lpBuffer, 0, c_dwStreamSize) == CACHE_OK,
                "ReadData");
        while (!m_lpBuffer) CCmCallerThread::WaitAndRun(1000);
    }

 private:
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) override {
        Require(dwLength == c_dwStreamSize, "all bytes of a read");
        m_lpBuffer = lpData;
    }
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) override {}

    CCmCallerThreadGuard m_attached;
    CPlayFileHandler* const m_pHandler;
    std::vector<tagFileDescriber> m_vecStreams;
    unsigned char* m_lpBuffer = new unsigned char[c_dwStreamSize];
};

Metrics PerEntry(std::uint64_t qwBegin, std::size_t nFound) {
    const double dTime = CClock::ToNanoseconds(CClock::Now() - qwBegin);
    Require(nFound == c_nEntries, "all entries");
    return {{"an entry", dTime / static_cast<double>(c_nEntries)}};
}

Metrics OpenContainer(const std::string& strPath, bool bAsync) {
    const std::uint64_t qwBegin = CClock::Now();
    CContainerPlayer aPlayer(strPath, bAsync);
    aPlayer.Read(c_nEntries / 2);
    return PerEntry(qwBegin, aPlayer.Size());
}

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
    const char* const lpOpen = "open 100,000 entries";
    const std::string strMany = aBench.Path("container-many");
    const std::string strFew = aBench.Path("container-few");
    const auto makeMany = Once([strMany] { MakeContainer(strMany, c_nEntries); });
    const auto makeFew = Once([strFew] { MakeContainer(strFew, 10); });
    const auto add = [&](const char* lpWorkload, const char* lpName,
                         std::function<Metrics()> aRun) {
        aBench.vecContestants.push_back({lpWorkload, lpName, std::move(aRun)});
    };
    for (const bool bAsync : {false, true})
        add(lpOpen, bAsync ? "cachefile async" : "cachefile sync", [strMany, makeMany, bAsync] {
            makeMany();
            return OpenContainer(strMany, bAsync);
        });
    aBench.vecFigures.push_back(
        {"opening 100,000 entries, ns an entry", "an entry", lpOpen, "cachefile sync", "", "", 60});
    [[maybe_unused]] const auto addArchive = [&](const char* lpName, const char* lpFile, auto aMake,
                                                 auto aOpen) {
        const std::string strPath = aBench.Path(lpFile);
        add(lpOpen, lpName, [=, make = Once([=] { aMake(strPath, c_nEntries); })] {
            make();
            const std::uint64_t qwBegin = CClock::Now();
            return PerEntry(qwBegin, aOpen(strPath));
        });
    };
#ifdef BENCH_SQLITE
    addArchive("SQLite", "sqlite", MakeSqlite, OpenSqlite);
    aBench.vecFigures.push_back(
        {"opening 100,000 entries", "an entry", lpOpen, "cachefile sync", lpOpen, "SQLite", 0.25});
#endif
#ifdef BENCH_LIBZIP
    addArchive("libzip", "zip", MakeZip, OpenZip);
#endif

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
