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

/// A recorder that goes on until it is killed. nStored: how many bytes have to be in the file.
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

unsigned Rounds() {
    const char* const lpGiven = std::getenv("CACHEFILE_KILL_ROUNDS");
    return lpGiven ? static_cast<unsigned>(std::strtoul(lpGiven, nullptr, 10)) : 100;
}

}  // namespace

using Kill = testing::TestWithParam<Mode>;
INSTANTIATE_BOTH_MODES(Kill);

TEST_P(Kill, TheFileIsAPrefixOfItsStreamAndHoldsWhatWasStored) {
    const CCmString strStream = Pattern(9'000'000);
    // It lies in memory that outlives the recorder.
    using Stored = std::atomic<std::size_t>;
    void* const pShared =
        ::mmap(nullptr, sizeof(Stored), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pShared, MAP_FAILED);
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
        ::kill(nRecorder, SIGKILL);
        ::waitpid(nRecorder, &nStatus, 0);
        ASSERT_TRUE(WIFSIGNALED(nStatus) && WTERMSIG(nStatus) == SIGKILL) << nStatus;
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
