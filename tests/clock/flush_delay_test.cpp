#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <list>

#include "tests/clock/SimulatedTime.h"
#include "tests/support/Files.h"
#include "tools/cachefile/Commands.h"

namespace {

using Clock = SimulatedTime::Clock;
using std::chrono::milliseconds;

/// A pipe whose other end gets bytes at random times, and the record file that gets them.
class Input {
 public:
    Input(unsigned nNumber, unsigned nSeed) : m_nNumber(nNumber), m_random(nSeed) {
        EXPECT_EQ(::pipe2(m_aPipe, O_CLOEXEC), 0);
        Plan(Clock::now());
    }
    ~Input() { ::close(m_aPipe[0]); }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    std::string Stream() const {
        return "4:" + std::to_string(m_nNumber) + "004:4=/dev/fd/" + std::to_string(m_aPipe[0]);
    }

    /// Returns how long the oldest of the bytes that were not in the file before has waited.
    milliseconds FindDelay(Clock::time_point aNow) {
        if (m_lstArrived.empty()) return {};
        const auto aSince = m_lstArrived.front().first;
        std::error_code aError;
        const std::string strFile = "kvr2/7/4_" + std::to_string(m_nNumber) + "004-4.dat";
        const std::uintmax_t nSize = std::filesystem::file_size(strFile, aError);
        while (!aError && !m_lstArrived.empty() && m_lstArrived.front().second <= nSize)
            m_lstArrived.pop_front();
        return std::chrono::ceil<milliseconds>(aNow - aSince);
    }

 private:
    static constexpr int c_nPieces = 100;

    /// Times in microseconds, so that they do not agree with the ticks of the recorder.
    void Plan(Clock::time_point aNow) {
        const auto aPause =
            std::chrono::microseconds(m_random.Below(m_random.OneIn(2) ? 20'000 : 4'000'000));
        SimulatedTime::At(aNow + aPause, [this, aTime = aNow + aPause] { Arrive(aTime); });
    }

    void Arrive(Clock::time_point aNow) {
        if (++m_nPiece > c_nPieces) {
            ::close(m_aPipe[1]);
            return;
        }
        const std::string strBytes(1 + m_random.Below(40), 'x');
        EXPECT_EQ(::write(m_aPipe[1], strBytes.data(), strBytes.size()),
                  static_cast<ssize_t>(strBytes.size()));
        m_nArrived += strBytes.size();
        m_lstArrived.emplace_back(aNow, m_nArrived);
        Plan(aNow);
    }

    const unsigned m_nNumber;
    SeededRandom m_random;
    int m_aPipe[2] = {};
    int m_nPiece = 0;
    std::uintmax_t m_nArrived = 0;
    std::list<std::pair<Clock::time_point, std::uintmax_t>> m_lstArrived;  // not in the file
};

struct tagCase {
    const char* lpName;
    bool bSync;
    bool bWaitWhenFull;
    unsigned nInputs;
};

void PrintTo(const tagCase& aCase, std::ostream* pStream) { *pStream << aCase.lpName; }

}  // namespace

class FlushDelay : public testing::TestWithParam<tagCase> {};

/// With --flush 1s, another process can read what was recorded at most 1.1 seconds later.
TEST_P(FlushDelay, IsAtMostATenthLongerThanRequested) {
    for (unsigned nSeed = 1; nSeed <= 3; ++nSeed) {
        const TestDir aDir;
        std::list<Input> lstInputs;
        tagRecordOptions aOptions;
        aOptions.aPlan = {7, "kvr2", GetParam().bSync, GetParam().bWaitWhenFull};
        aOptions.aProgress = ProgressMode::Never;
        for (unsigned i = 1; i <= GetParam().nInputs; ++i)
            aOptions.vecStreams.push_back(lstInputs.emplace_back(i, 10 * nSeed + i).Stream());
        milliseconds aLongest{0};
        SimulatedTime::OnRest([&](Clock::time_point aNow) {
            for (Input& aInput : lstInputs) aLongest = std::max(aLongest, aInput.FindDelay(aNow));
        });
        EXPECT_EQ(Record(aOptions), 0);
        SimulatedTime::OnRest({});
        EXPECT_GE(aLongest.count(), 1000) << "bytes are gathered";
        EXPECT_LE(aLongest.count(), 1100);
    }
}

INSTANTIATE_TEST_SUITE_P(Modes, FlushDelay,
                         testing::Values(tagCase{"Worker", false, false, 1},
                                         tagCase{"WorkerOfThree", false, false, 3},
                                         tagCase{"NoWorker", true, false, 1},
                                         tagCase{"NoWorkerOfThree", true, false, 3},
                                         tagCase{"WaitWhenFull", true, true, 3}),
                         [](const auto& aInfo) { return aInfo.param.lpName; });
