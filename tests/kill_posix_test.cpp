#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <new>
#include <thread>

#include "tests/support/HostTest.h"

// Kills recorders at random times, CACHEFILE_KILL_ROUNDS times in each mode.

namespace {

/// Records until it is killed. nStored: how many bytes must be in the file at least.
[[noreturn]] void Record(Mode aMode, SeededRandom& aRandom, const CCmString& strStream,
                         std::atomic<std::size_t>& nStored) {
    const CCmCallerThreadGuard aAttached;
    Recording aRecording(aMode, nullptr);
    const CmUint32 dwHandle = aRecording.Open("a");
    std::size_t nWritten = 0, nFlushed = 0;
    for (;;) {
        const CCmString strPiece =
            strStream.substr(nWritten, aRandom.Below(aRandom.Below(8) ? 3'000 : 60'000));
        if (aRecording.Write(dwHandle, strPiece) != 0) std::abort();
        nWritten += strPiece.size();
        if (aRandom.Below(8) == 0) {
            aRecording->FlushData(dwHandle);
            nFlushed = nWritten;
            while (aRandom.Below(8) == 0 && CCacheFileManager::GetPendingBytes() > 0) ::usleep(10);
        }
        // Asynchronous: what had been flushed when nothing was pending is in its file.
        if (CCacheFileManager::GetPendingBytes() == 0) nStored = nFlushed;
        if (aMode == Async) CCmCallerThread::RunPending();
    }
}

using Milliseconds = std::chrono::milliseconds;

constexpr unsigned c_nStreams = 3;
constexpr Milliseconds c_age(100);
constexpr Milliseconds c_maxPause(50);
constexpr unsigned c_nTogether = 5;  // recorders that run at the same time

std::int64_t Now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }
std::int64_t Ticks(Milliseconds aTime) {
    return std::chrono::steady_clock::duration(aTime).count();
}

/// What a slow recorder writes down, in memory that outlives it.
struct Diary {
    struct Piece {
        std::int64_t nWhen;  // its call returned
        std::size_t nEnd;    // of all pieces of the stream so far
    };
    struct Stream {
        std::atomic<unsigned> nPieces{0};
        Piece aPieces[1'000];
    };
    std::atomic<std::int64_t> nBeat{0};   // the worker had written all that it had been given
    std::atomic<std::int64_t> nPause{0};  // the longest between two beats
    Stream aStreams[c_nStreams];

    /// How many bytes have to be in the file: all but those of the last 100 ms and of one piece.
    std::size_t MustBeThere(const Stream& aStream) const {
        unsigned nOld = 0;
        while (nOld < aStream.nPieces && aStream.aPieces[nOld].nWhen < nBeat - Ticks(c_age)) ++nOld;
        return nOld < 2 ? 0 : aStream.aPieces[nOld - 2].nEnd;
    }

    /// Whether the host or the worker was held up, by other programs if the library is right.
    bool WasPaused(std::int64_t nKilled) const {
        return nBeat == 0 || std::max<std::int64_t>(nPause, nKilled - nBeat) > Ticks(c_maxPause);
    }
};

/// A recorder of small pieces that would fill no block for minutes.
[[noreturn]] void RecordSlowly(Mode aMode, SeededRandom aRandom, const CCmString& strName,
                               const CCmString& strStream, Diary& aDiary) {
    ::setpriority(PRIO_PROCESS, 0, -10);  // if permitted: other programs then pause it less
    const CCmCallerThreadGuard aAttached;
    CCacheFileManager::SetGatherAge(static_cast<CmUint32>(c_age.count()));
    Recording aRecording(aMode, nullptr);
    CmUint32 aHandles[c_nStreams];
    std::int64_t aNext[c_nStreams] = {};
    for (unsigned i = 0; i < c_nStreams; ++i)
        aHandles[i] = aRecording.Open(strName + std::to_string(i));
    for (aDiary.nBeat = Now();;) {
        for (unsigned i = 0; i < c_nStreams; ++i) {
            if (Now() < aNext[i]) continue;
            Diary::Stream& aStream = aDiary.aStreams[i];
            const unsigned n = aStream.nPieces;
            const std::size_t nBegin = n > 0 ? aStream.aPieces[n - 1].nEnd : 0;
            const CCmString strPiece = strStream.substr(nBegin, 1 + aRandom.Below(100));
            if (aRecording.Write(aHandles[i], strPiece) != 0) std::abort();
            aStream.aPieces[n] = {Now(), nBegin + strPiece.size()};
            aStream.nPieces = n + 1;
            aNext[i] = Now() + Ticks(Milliseconds(30 + aRandom.Below(20)));
        }
        if (aMode == Async)
            CCmCallerThread::WaitAndRun(4);
        else
            ::usleep(4'000);
        const std::int64_t nNow = Now();
        if (CCacheFileManager::GetPendingBytes() > 0) continue;
        aDiary.nPause = std::max<std::int64_t>(aDiary.nPause, nNow - aDiary.nBeat);
        aDiary.nBeat = nNow;
    }
}

template <class T>
T* Shared(std::size_t nCount) {
    void* const pShared = ::mmap(nullptr, nCount * sizeof(T), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return pShared == MAP_FAILED ? nullptr : static_cast<T*>(pShared);
}

void ExpectKilled(pid_t nRecorder) {
    int nStatus = 0;
    ::kill(nRecorder, SIGKILL);
    ::waitpid(nRecorder, &nStatus, 0);
    ASSERT_TRUE(WIFSIGNALED(nStatus) && WTERMSIG(nStatus) == SIGKILL) << nStatus;
}

unsigned Rounds() {
    const char* const lpGiven = std::getenv("CACHEFILE_KILL_ROUNDS");
    return lpGiven ? static_cast<unsigned>(std::strtoul(lpGiven, nullptr, 10)) : 100;
}

}  // namespace

using Kill = testing::TestWithParam<Mode>;
INSTANTIATE_BOTH_MODES(Kill);

TEST_P(Kill, TheFileIsAPrefixOfItsStreamAndHoldsWhatWasStored) {
    const CCmString strStream = Pattern(9'000'000);
    // In shared memory, so that it can be read after the recorder was killed.
    using Stored = std::atomic<std::size_t>;
    Stored* const pShared = Shared<Stored>(1);
    ASSERT_NE(pShared, nullptr);
    SeededRandom aRandom;
    std::size_t nKept = 0, nAllStored = 0;
    for (unsigned nRound = 0; nRound < Rounds(); ++nRound) {
        SCOPED_TRACE(nRound);
        const TestDir aDir;
        Stored& nStored = *new (pShared) Stored{0};
        const bool bWait =
            nRound % 8 != 7;  // until something is stored, or it is killed at any time
        const std::chrono::microseconds aDelay(aRandom.Below(8'000));
        const pid_t nRecorder = ::fork();
        if (nRecorder == 0) Record(GetParam(), aRandom, strStream, nStored);
        int nStatus = 0;
        while (bWait && nStored == 0 && ::waitpid(nRecorder, &nStatus, WNOHANG) == 0)
            std::this_thread::yield();
        std::this_thread::sleep_for(aDelay);
        ExpectKilled(nRecorder);
        const CCmString strPath = Recording::PathOf("a");
        const CCmString strFile = Exists(strPath) ? ReadBytes(strPath) : CCmString();
        ASSERT_EQ(Difference(strFile, strStream.substr(0, strFile.size())), "");
        ASSERT_GE(strFile.size(), nStored);
        nKept += strFile.size();
        nAllStored += nStored;
    }
    ::munmap(pShared, sizeof(Stored));
    std::cout << Rounds() << " kills, " << nKept << " bytes kept, " << nAllStored << " stored\n";
    EXPECT_TRUE(nKept > 0 && nAllStored > 0) << "the kills came too early to say anything";
}

TEST_P(Kill, OfASlowRecorderCostsTheBytesOfTheAge) {
    Diary* const pDiaries = Shared<Diary>(c_nTogether);
    ASSERT_NE(pDiaries, nullptr);
    const CCmString strStream = Pattern(100'000);
    SeededRandom aRandom;
    const TestDir aDir;
    std::filesystem::create_directories("kvr2/7");
    unsigned nDone = 0, nPaused = 0;
    std::size_t nKept = 0;
    while (nDone < Rounds() && nPaused <= Rounds() / 5) {
        pid_t aRecorders[c_nTogether];
        for (unsigned n = 0; n < c_nTogether; ++n) {
            new (&pDiaries[n]) Diary;
            aRecorders[n] = ::fork();
            if (aRecorders[n] == 0)
                RecordSlowly(GetParam(), SeededRandom(aRandom.Below(1'000'000) + n),
                             std::to_string(n) + "-", strStream, pDiaries[n]);
        }
        std::this_thread::sleep_for(Milliseconds(200 + aRandom.Below(200)));
        const std::int64_t nKilled = Now();
        for (const pid_t nRecorder : aRecorders) ExpectKilled(nRecorder);
        for (unsigned n = 0; n < c_nTogether; ++n) {
            const Diary& aDiary = pDiaries[n];
            if (aDiary.WasPaused(nKilled)) {
                ++nPaused;  // other programs delayed it for too long, so it is repeated
                continue;
            }
            ++nDone;
            for (unsigned i = 0; i < c_nStreams; ++i) {
                const CCmString strName = std::to_string(n) + "-" + std::to_string(i);
                const CCmString strFile = ReadBytes(Recording::PathOf(strName));
                ASSERT_EQ(Difference(strFile, strStream.substr(0, strFile.size())), "");
                ASSERT_GE(strFile.size(), aDiary.MustBeThere(aDiary.aStreams[i]));
                nKept += strFile.size();
            }
        }
    }
    ::munmap(pDiaries, c_nTogether * sizeof(Diary));
    std::cout << nDone << " kills, " << nPaused << " paused, " << nKept << " bytes kept\n";
    EXPECT_GT(nKept, 0U);
    EXPECT_LE(nPaused, Rounds() / 5);
}
