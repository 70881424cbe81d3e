#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <new>
#include <thread>

#include "tests/kill_host.h"
#include "tests/support/HostTest.h"

// A recorder is killed at random moments. CACHEFILE_KILL_ROUNDS says how often.

namespace {

/// The memory that a recorder writes its promises into.
class SharedPromises {
 public:
    SharedPromises() {
        const int nFile = ::open(c_szPromises, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(::ftruncate(nFile, sizeof(Promises)), 0);
        m_pMemory = ::mmap(nullptr, sizeof(Promises), PROT_READ | PROT_WRITE, MAP_SHARED, nFile, 0);
        ::close(nFile);
        new (m_pMemory) Promises;
    }
    ~SharedPromises() { ::munmap(m_pMemory, sizeof(Promises)); }
    SharedPromises(const SharedPromises&) = delete;
    SharedPromises& operator=(const SharedPromises&) = delete;

    Promises* operator->() const { return static_cast<Promises*>(m_pMemory); }

 private:
    void* m_pMemory;
};

unsigned Rounds() {
    const char* const lpGiven = std::getenv("CACHEFILE_KILL_ROUNDS");
    return lpGiven ? static_cast<unsigned>(std::strtoul(lpGiven, nullptr, 10)) : 100;
}

class Kill : public testing::TestWithParam<Mode> {
 protected:
    /// Starts a recorder and kills it: some time after its first promise, or at any time.
    void KillOne(const SharedPromises& aPromises, bool bWait) {
        std::string strProgram = KILL_HOST, strMode = GetParam() == Async ? "async" : "sync";
        std::string strSeed = std::to_string(m_random.Below(1U << 31));
        char* const lpArguments[] = {strProgram.data(), strMode.data(), strSeed.data(), nullptr};
        pid_t nHost = 0;
        ASSERT_EQ(::posix_spawn(&nHost, KILL_HOST, nullptr, nullptr, lpArguments, environ), 0);
        int nStatus = 0;
        while (bWait && !aPromises->bStarted && ::waitpid(nHost, &nStatus, WNOHANG) == 0)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::microseconds(m_random.Below(8'000)));
        ::kill(nHost, SIGKILL);
        ::waitpid(nHost, &nStatus, 0);
        ASSERT_TRUE(WIFSIGNALED(nStatus) && WTERMSIG(nStatus) == SIGKILL) << nStatus;
    }

    SeededRandom m_random;
};

}  // namespace

INSTANTIATE_BOTH_MODES(Kill);

TEST_P(Kill, EachFileIsAPrefixOfItsStreamAndHoldsWhatAFlushAnsweredFor) {
    const CCmString aStreams[c_nStreams] = {StreamOf(0), StreamOf(1), StreamOf(2)};
    std::size_t nKept = 0, nFlushed = 0;
    for (unsigned nRound = 0; nRound < Rounds(); ++nRound) {
        SCOPED_TRACE(nRound);
        const TestDir aDir;
        const SharedPromises aPromises;
        ASSERT_NO_FATAL_FAILURE(KillOne(aPromises, nRound % 8 != 7));
        for (unsigned i = 0; i < c_nStreams; ++i) {
            const CCmString strPath = Recording::PathOf(std::to_string(i));
            const CCmString strFile = Exists(strPath) ? ReadBytes(strPath) : CCmString();
            ASSERT_EQ(Difference(strFile, aStreams[i].substr(0, strFile.size())), "") << strPath;
            ASSERT_GE(strFile.size(), aPromises->aFlushed[i]) << strPath;
            nKept += strFile.size();
            nFlushed += aPromises->aFlushed[i];
        }
    }
    std::cout << Rounds() << " kills, " << nKept << " bytes kept, " << nFlushed << " flushed\n";
    EXPECT_TRUE(nKept > 0 && nFlushed > 0) << "the kills came too early to say anything";
}
