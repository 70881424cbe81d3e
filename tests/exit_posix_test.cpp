#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>

#include "tests/support/HostTest.h"

/// Runs a host that ends in its own way.
class ExitBySignal : public testing::Test {
 protected:
    static pid_t Start(std::string strScenario) {
        std::string strProgram = EXIT_HOST;
        char* const lpArguments[] = {strProgram.data(), strScenario.data(), nullptr};
        pid_t nHost = 0;
        EXPECT_EQ(::posix_spawn(&nHost, EXIT_HOST, nullptr, nullptr, lpArguments, environ), 0);
        return nHost;
    }

    TestDir m_dir;
};

class Exit : public ExitBySignal, public testing::WithParamInterface<const char*> {};

TEST_P(Exit, EveryAcceptedWriteIsInItsFile) {
    const std::string strScenario = GetParam();
    int nStatus = -1;
    ::waitpid(Start(strScenario), &nStatus, 0);
    EXPECT_EQ(nStatus, 0);
    CCmString strAll;
    for (unsigned i = 0; i < 50; ++i) strAll += Pattern(40'000, i);
    if (strScenario == "closed" || strScenario == "destroyed") strAll += "tail";
    ExpectFile(Recording::PathOf("a"), strAll);
}

INSTANTIATE_TEST_SUITE_P(Host, Exit,
                         testing::Values("busy", "forked", "twice", "late", "closed", "destroyed",
                                         "callback", "signalfd"),
                         [](const auto& aInfo) { return std::string(aInfo.param); });

namespace {

/// The state of a process as the system shows it; Z when its main thread has ended.
char StateOf(pid_t nProcess) {
    std::ifstream aFile("/proc/" + std::to_string(nProcess) + "/stat");
    std::string strNumber, strName;
    char cState = 0;
    aFile >> strNumber >> strName >> cState;
    return cState;
}

}  // namespace

TEST_F(ExitBySignal, EndsAProcessWhoseMainThreadHasEnded) {
    for (const int nSignal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        const pid_t nHost = Start("main_ended");
        while (StateOf(nHost) != 'Z') ::usleep(1000);
        ::kill(nHost, nSignal);
        int nStatus = 0;
        const auto aLimit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (::waitpid(nHost, &nStatus, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > aLimit) ::kill(nHost, SIGKILL);
            ::usleep(1000);
        }
        EXPECT_TRUE(WIFSIGNALED(nStatus) && WTERMSIG(nStatus) == nSignal) << nStatus;
    }
}
