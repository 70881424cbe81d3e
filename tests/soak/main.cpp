#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

#include "tests/faults/Faults.h"
#include "tests/faults/Memory.h"
#include "tests/soak/SoakStream.h"

// A long run: 50 streams with random operations on a disk that is full now and then. usage:
// cachefile_soak [--seconds N] [--seed S]. Every minute all streams are finished and the library is
// shut down. Then every byte is accounted for, and what the process uses is printed. The exit code
// is 1 if a byte is not accounted for or if the process uses more at the end than after the first
// twelfth of the time.

namespace {

constexpr std::size_t c_nStreams = 50;
constexpr long c_lMemoryMargin = 4'096;  // KiB
constexpr long c_lPiecesMargin = 100;    // allocations

using Clock = std::chrono::steady_clock;

struct Usage {
    long lMemory, lDescriptors, lThreads, lPieces;  // memory in KiB
};

long ReadStatus(const std::string& strName) {
    std::ifstream aStatus("/proc/self/status");
    for (std::string strLine; std::getline(aStatus, strLine);)
        if (strLine.rfind(strName, 0) == 0) return std::atol(strLine.c_str() + strName.size());
    return 0;
}

Usage GetUsage() {
    return {ReadStatus("VmRSS:"), static_cast<long>(CountOpenFiles()), ReadStatus("Threads:"),
            static_cast<long>(Memory::InUse())};
}

class Soak {
 public:
    Soak(unsigned nSeed, std::chrono::seconds aTime)
        : m_random(nSeed), m_begin(Clock::now()), m_aTime(aTime) {
        for (std::size_t i = 0; i < c_nStreams; ++i)
            m_vecStreams.push_back(std::make_unique<SoakStream>(m_totals));
    }

    void Run() {
        const auto aBetween =
            std::min<Clock::duration>(std::chrono::minutes(1), Clock::duration(m_aTime) / 4);
        std::puts(
            "second operations files accepted lost | working: KiB fds threads |"
            " idle: KiB fds threads allocations");
        for (int i = 1; i * aBetween <= m_aTime; ++i) {
            while (Clock::now() < m_begin + i * aBetween) Step();
            Rest();
        }
        CheckFlat();
    }

 private:
    void Step() {
        const unsigned nWhat = m_random.Below(2'000);
        if (nWhat == 0) CCacheFileManager::SetPendingLimit(1U << (17 + m_random.Below(7)));
        if (nWhat == 1) CCacheFileManager::SetGatherAge(m_random.Below(3) * 20);
        if (nWhat == 2) CCacheFileManager::SetSyncInterval(m_random.Below(3) * 100);
        if (nWhat == 3) Faults::SetWriteDelay(std::chrono::milliseconds(m_random.OneIn(4)));
        if (nWhat == 4 && m_random.OneIn(3)) FillDisk();
        if (nWhat >= 5 && nWhat < 10) FreeDisk();
        m_vecStreams[m_random.Below(c_nStreams)]->Step(m_random);
        if (m_random.OneIn(4)) CCmCallerThread::RunPending();
        if (m_random.OneIn(10)) CCmCallerThread::WaitAndRun(2);
    }

    void FillDisk() {
        if (m_totals.bFull) return;
        m_totals.bFull = true;
        ++m_totals.nFullPeriods;
        Faults::Arm(m_random.OneIn(3) ? Faults::Call_mkdirat : Faults::Call_write, 1, true, ENOSPC);
    }

    void FreeDisk() {
        if (!m_totals.bFull) return;
        Faults::Disarm();
        SoakHost::Settle();
        Faults::Disarm();  // the worker may have been inside a failing write
        m_totals.bFull = false;
    }

    /// Finishes the streams, in half of the cases after a shutdown, and compares the sums.
    void Rest() {
        const Usage aWorking = GetUsage();
        const bool bStop = m_random.OneIn(2);
        if (bStop) {
            for (const auto& pStream : m_vecStreams) pStream->Flush();
            CacheFileShutdown();
        }
        for (const auto& pStream : m_vecStreams) pStream->Finish(m_random, bStop);
        FreeDisk();
        CacheFileShutdown();
        SoakRequire(CCacheFileManager::GetLostBytes() == m_totals.qwMissing,
                    std::to_string(m_totals.qwMissing) + " bytes are missing, " +
                        std::to_string(CCacheFileManager::GetLostBytes()) + " counted as lost");
        SoakRequire(CCacheFileManager::GetPendingBytes() == 0, "nothing is pending");
        SoakRequire(CCacheFileManager::GetUnsyncedBytes() == 0, "nothing is unsynced");
        const Usage aIdle = GetUsage();
        m_vecIdle.push_back(aIdle);
        const auto aPassed = Clock::now() - m_begin;
        std::printf("%lld %llu %u %llu %llu | %ld %ld %ld | %ld %ld %ld %ld\n",
                    static_cast<long long>(
                        std::chrono::duration_cast<std::chrono::seconds>(aPassed).count()),
                    static_cast<unsigned long long>(m_totals.qwOperations), m_totals.dwOpens,
                    static_cast<unsigned long long>(m_totals.qwAccepted),
                    static_cast<unsigned long long>(m_totals.qwMissing), aWorking.lMemory,
                    aWorking.lDescriptors, aWorking.lThreads, aIdle.lMemory, aIdle.lDescriptors,
                    aIdle.lThreads, aIdle.lPieces);
        std::fflush(stdout);
    }

    void CheckFlat() const {
        const auto most = [&](long Usage::*pValue) {
            long lMost = 0;
            for (std::size_t i = 0; i <= m_vecIdle.size() / 12; ++i)
                lMost = std::max(lMost, m_vecIdle[i].*pValue);
            return lMost;
        };
        const Usage& aEnd = m_vecIdle.back();
        SoakRequire(aEnd.lDescriptors <= most(&Usage::lDescriptors), "descriptors are left");
        SoakRequire(aEnd.lThreads <= most(&Usage::lThreads), "threads are left");
        SoakRequire(aEnd.lPieces <= most(&Usage::lPieces) + c_lPiecesMargin,
                    "allocations are left");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep freed memory
        SoakRequire(aEnd.lMemory <= most(&Usage::lMemory) + c_lMemoryMargin, "memory grows");
#endif
    }

    SeededRandom m_random;
    const Clock::time_point m_begin;
    const std::chrono::seconds m_aTime;
    SoakTotals m_totals;
    std::vector<std::unique_ptr<SoakStream>> m_vecStreams;
    std::vector<Usage> m_vecIdle;
};

}  // namespace

int main(int nArguments, char** lpArguments) {
    unsigned nSeed = std::random_device{}();
    unsigned nSeconds = 3'600;
    for (int i = 1; i + 1 < nArguments; i += 2) {
        const auto nValue = static_cast<unsigned>(std::strtoul(lpArguments[i + 1], nullptr, 10));
        (std::string(lpArguments[i]) == "--seed" ? nSeed : nSeconds) = nValue;
    }
    std::printf("seed %u, %u seconds\n", nSeed, nSeconds);
    const TestDir aDir;
    const CCmCallerThreadGuard aAttached;
    CCmT120Trace::instance()->SetSink([](CmInt32, const char*) {});
    CCacheFileManager::SetRoomWakeUp(1);
    try {
        Soak(nSeed, std::chrono::seconds(nSeconds)).Run();
    } catch (const std::exception& aFailure) {
        std::printf("failed: %s\n", aFailure.what());
        std::fflush(stdout);
        std::_Exit(1);  // the streams are still open
    }
    std::puts("every byte is accounted for; memory, descriptors and threads are flat");
    return 0;
}
