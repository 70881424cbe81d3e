#include <cachefile.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <random>

#include "bench/Bench.h"
#include "bench/Clock.h"
#include "tools/HostPath.h"
#ifdef BENCH_LIBUV
#include "bench/Uv.h"
#endif

/// Workloads of a player: reads at random, unaligned positions of a file that is in the page cache.

namespace {

constexpr std::size_t c_nFileSize = 64U << 20;
constexpr tagFileDescriber c_aStream{4, 4, 1004, 0};
constexpr tagDataInfo c_aInfo{4, 1004, 0, 4};

struct tagReadRun {
    std::string strPath;
    std::size_t nLength;
    std::size_t nCount;
    std::size_t nInFlight;
};

/// The seed is fixed, so all contestants read the same positions.
class CPlaces {
 public:
    explicit CPlaces(std::size_t nLength) : m_range(0, c_nFileSize - nLength) {}
    std::uint64_t operator()() { return m_range(m_random); }

 private:
    std::mt19937_64 m_random{42};
    std::uniform_int_distribution<std::uint64_t> m_range;
};

Metrics PerRead(const tagReadRun& aRun, std::uint64_t qwBegin) {
    const double dTime = CClock::ToNanoseconds(CClock::Now() - qwBegin);
    return {{"a read", dTime / static_cast<double>(aRun.nCount)}};
}

Metrics ReadWithPread(const tagReadRun& aRun) {
    const int nFile = ::open(aRun.strPath.c_str(), O_RDONLY | O_CLOEXEC);
    Require(nFile >= 0, "open");
    std::vector<char> vecBytes(aRun.nLength);
    CPlaces aPlaces(aRun.nLength);
    const std::uint64_t qwBegin = CClock::Now();
    for (std::size_t i = 0; i < aRun.nCount; ++i)
        Require(::pread(nFile, vecBytes.data(), aRun.nLength, static_cast<off_t>(aPlaces())) ==
                    static_cast<ssize_t>(aRun.nLength),
                "pread");
    const Metrics aResult = PerRead(aRun, qwBegin);
    ::close(nFile);
    return aResult;
}

/// A player that reuses each delivered buffer for the next read.
class CLibraryReader final : private IFileOpSink {
 public:
    CLibraryReader(const tagReadRun& aRun, bool bAsync)
        : m_run(aRun),
          m_places(aRun.nLength),
          m_pHandler(CCacheFileManager::Instance().CreatePlayFileHandler(1, 0, bAsync)),
          m_bAsync(bAsync) {
        Require(m_pHandler && m_attached.GetResult() == CACHE_OK, "a play handler");
        m_pHandler->Initialize(this);
        m_pHandler->SetHomeDir("");
        Require(m_pHandler->OpenRecordFile(HostPath(aRun.strPath), c_aStream, 0) == CACHE_OK,
                "OpenRecordFile");
        while (m_bAsync && !m_bOpened) CCmCallerThread::WaitAndRun(1000);
    }
    ~CLibraryReader() { m_pHandler->Destroy(); }

    Metrics Run() {
        std::vector<unsigned char*> vecBuffers;
        for (std::size_t i = 0; i < m_run.nInFlight; ++i)
            vecBuffers.push_back(new unsigned char[m_run.nLength]());
        const std::uint64_t qwBegin = CClock::Now();
        for (unsigned char* lpBuffer : vecBuffers) Read(lpBuffer);
        if (m_bAsync)
            while (m_nDelivered < m_run.nCount) CCmCallerThread::WaitAndRun(1000);
        else
            while (m_nAsked < m_run.nCount) Read(m_lpFree);
        const Metrics aResult = PerRead(m_run, qwBegin);
        delete[] m_lpFree;
        return aResult;
    }

 private:
    void Read(unsigned char* lpBuffer) {
        if (m_nAsked++ >= m_run.nCount) {
            delete[] lpBuffer;
            return;
        }
        Require(m_pHandler->ReadData(c_aInfo, lpBuffer, static_cast<CmUint32>(m_places()),
                                     static_cast<CmUint32>(m_run.nLength)) == CACHE_OK,
                "ReadData");
    }
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) override {
        Require(dwLength == m_run.nLength, "all bytes of a read");
        ++m_nDelivered;
        if (m_bAsync)
            Read(lpData);
        else
            m_lpFree = lpData;
    }
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType,
                        CmInt32 aResult) override {
        Require(aResult == CACHE_OK, "an operation on the worker");
        m_bOpened = true;
    }

    const tagReadRun& m_run;
    CPlaces m_places;
    CCmCallerThreadGuard m_attached;
    CPlayFileHandler* const m_pHandler;
    const bool m_bAsync;
    bool m_bOpened = false;
    unsigned char* m_lpFree = nullptr;
    std::size_t m_nAsked = 0, m_nDelivered = 0;
};

Metrics ReadWithLibrary(const tagReadRun& aRun, bool bAsync) {
    return CLibraryReader(aRun, bAsync).Run();
}

#ifdef BENCH_LIBUV
Metrics ReadWithPool(const tagReadRun& aRun) {
    CPlaces aPlaces(aRun.nLength);
    const std::uint64_t qwBegin = CClock::Now();
    ReadWithUv(aRun.strPath, aRun.nCount, aRun.nLength, aRun.nInFlight, std::ref(aPlaces));
    return PerRead(aRun, qwBegin);
}
#endif

/// Creates the file that all contestants read.
void MakeFile(const std::string& strPath) {
    const int nFile = ::open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    Require(nFile >= 0, "open");
    const std::string strBlock(1U << 20, 'y');
    for (std::size_t i = 0; i < c_nFileSize; i += strBlock.size())
        Require(::write(nFile, strBlock.data(), strBlock.size()) > 0, "write");
    ::fsync(nFile);  // so that no write-back disturbs the measurements
    ::close(nFile);
}

}  // namespace

void AddReads(tagBench& aBench) {
    const std::string strPath = aBench.Path("read");
    const auto pMade = std::make_shared<bool>(false);
    const auto add = [&](const std::string& strWorkload, const char* lpName, const tagReadRun& aRun,
                         auto aRead) {
        aBench.vecContestants.push_back({strWorkload, lpName, [pMade, aRun, aRead] {
                                             if (!*pMade) MakeFile(aRun.strPath);
                                             *pMade = true;
                                             return aRead(aRun);
                                         }});
    };
    const auto sync = [](const tagReadRun& aRun) { return ReadWithLibrary(aRun, false); };
    const auto async = [](const tagReadRun& aRun) { return ReadWithLibrary(aRun, true); };
    const struct {
        const char* lpSize;
        std::size_t nLength, nCount;
        double dWanted;
    } aSizes[] = {{"64 KiB", 65536, aBench.Amount(5'000), 1.05},
                  {"4 KiB", 4096, aBench.Amount(40'000), 1.35}};
    for (const auto& aSize : aSizes) {
        const std::string strSize = aSize.lpSize;
        const tagReadRun aOne{strPath, aSize.nLength, aSize.nCount, 1};
        const tagReadRun aMany{strPath, aSize.nLength, aSize.nCount, 16};
        const tagReadRun aFew{strPath, aSize.nLength, aBench.Amount(1'000), 1};
        const std::string strOne = "read " + strSize;
        const std::string strMany = "read " + strSize + ", 16 in flight";
        const std::string strAlone = "read " + strSize + ", one at a time, asynchronous";
        add(strOne, "cachefile sync", aOne, sync);
        add(strOne, "pread", aOne, ReadWithPread);
        add(strMany, "cachefile async", aMany, async);
        add(strAlone, "cachefile async", aFew, async);
        aBench.vecFigures.push_back({"synchronous read of " + strSize, "a read", strOne,
                                     "cachefile sync", strOne, "pread", aSize.dWanted});
#ifdef BENCH_LIBUV
        add(strMany, "libuv", aMany, ReadWithPool);
        add(strAlone, "libuv", aFew, ReadWithPool);
        aBench.vecFigures.push_back({"asynchronous read of " + strSize + ", 16 in flight", "a read",
                                     strMany, "cachefile async", strMany, "libuv", 1.0});
#endif
    }
}
