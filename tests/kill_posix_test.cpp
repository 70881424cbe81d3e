#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <new>
#include <thread>

#include "tests/support/HostTest.h"

// Kills a recorder at random times, CACHEFILE_KILL_ROUNDS times.

namespace {

constexpr unsigned c_nStreams = 3;
constexpr unsigned c_nLongest = 3'000'000;

/// In shared memory that outlives the recorder.
struct Promises {
    std::atomic<bool> bStarted{false};                  ///< aStored has been set
    std::atomic<std::size_t> aStored[c_nStreams] = {};  ///< bytes that must be in the file
};

/// Records until it is killed.
[[noreturn]] void Record(Mode aMode, SeededRandom& aRandom, const CCmString (&aStreams)[c_nStreams],
                         Promises& aPromises) {
    const CCmCallerThreadGuard aAttached;
    Recording aRecording(aMode, nullptr);
    CmUint32 aHandles[c_nStreams];
    std::size_t aWritten[c_nStreams] = {}, aFlushed[c_nStreams] = {};
    for (unsigned i = 0; i < c_nStreams; ++i) aHandles[i] = aRecording.Open(std::to_string(i));
    for (;;) {
        const unsigned i = aRandom.Below(c_nStreams);
        const CCmString strPiece =
            aStreams[i].substr(aWritten[i], aRandom.Below(aRandom.Below(8) ? 3'000 : 60'000));
        if (aRecording.Write(aHandles[i], strPiece) != 0) std::abort();
        aWritten[i] += strPiece.size();
        if (aRandom.Below(8) == 0) {
            aRecording->FlushData(aHandles[i]);
            aFlushed[i] = aWritten[i];
            while (aRandom.Below(8) == 0 && CCacheFileManager::GetPendingBytes() > 0) ::usleep(10);
        }
        // Asynchronous mode: if nothing is pending, everything that was flushed is in its file.
        if (CCacheFileManager::GetPendingBytes() == 0)
            for (unsigned n = 0; n < c_nStreams; ++n) {
                aPromises.aStored[n] = aFlushed[n];
                if (aFlushed[n] > 0) aPromises.bStarted = true;
            }
        if (aMode == Async) CCmCallerThread::RunPending();
    }
}

unsigned Rounds() {
    const char* const lpGiven = std::getenv("CACHEFILE_KILL_ROUNDS");
    return lpGiven ? static_cast<unsigned>(std::strtoul(lpGiven, nullptr, 10)) : 100;
}

}  // namespace

using Kill = testing::TestWithParam<Mode>;
INSTANTIATE_BOTH_MODES(Kill);

TEST_P(Kill, EachFileIsAPrefixOfItsStreamAndHoldsWhatWasStored) {
    CCmString aStreams[c_nStreams];
    for (unsigned i = 0; i < c_nStreams; ++i) aStreams[i] = Pattern(c_nLongest, i);
    void* const pShared = ::mmap(nullptr, sizeof(Promises), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pShared, MAP_FAILED);
    SeededRandom aRandom;
    std::size_t nKept = 0, nStored = 0;
    for (unsigned nRound = 0; nRound < Rounds(); ++nRound) {
        SCOPED_TRACE(nRound);
        const TestDir aDir;
        Promises& aPromises = *new (pShared) Promises;
        const bool bWait = nRound % 8 != 7;  // wait for bStarted; otherwise kill it at any time
        const std::chrono::microseconds aDelay(aRandom.Below(8'000));
        const pid_t nRecorder = ::fork();
        if (nRecorder == 0) Record(GetParam(), aRandom, aStreams, aPromises);
        int nStatus = 0;
        while (bWait && !aPromises.bStarted && ::waitpid(nRecorder, &nStatus, WNOHANG) == 0)
            std::this_thread::yield();
        std::this_thread::sleep_for(aDelay);
        ::kill(nRecorder, SIGKILL);
        ::waitpid(nRecorder, &nStatus, 0);
        ASSERT_TRUE(WIFSIGNALED(nStatus) && WTERMSIG(nStatus) == SIGKILL) << nStatus;
        for (unsigned i = 0; i < c_nStreams; ++i) {
            const CCmString strPath = Recording::PathOf(std::to_string(i));
            const CCmString strFile = Exists(strPath) ? ReadBytes(strPath) : CCmString();
            ASSERT_EQ(Difference(strFile, aStreams[i].substr(0, strFile.size())), "") << strPath;
            ASSERT_GE(strFile.size(), aPromises.aStored[i]) << strPath;
            nKept += strFile.size();
            nStored += aPromises.aStored[i];
        }
    }
    ::munmap(pShared, sizeof(Promises));
    std::cout << Rounds() << " kills, " << nKept << " bytes kept, " << nStored << " stored\n";
    EXPECT_TRUE(nKept > 0 && nStored > 0) << "the kills came too early to say anything";
}
