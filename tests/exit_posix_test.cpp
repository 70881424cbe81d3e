#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/HostTest.h"

namespace {

int RunHost(std::string strScenario) {
    char aProgram[] = EXIT_HOST;
    char* const lpArguments[] = {aProgram, strScenario.data(), nullptr};
    pid_t nHost = 0;
    if (::posix_spawn(&nHost, aProgram, nullptr, nullptr, lpArguments, environ) != 0) return -1;
    int nStatus = -1;
    ::waitpid(nHost, &nStatus, 0);
    return nStatus;
}

}  // namespace

class Exit : public testing::TestWithParam<const char*> {};

TEST_P(Exit, EveryAcceptedWriteIsInItsFile) {
    TestDir aDir;
    EXPECT_EQ(RunHost(GetParam()), 0);
    CCmString strAll;
    for (unsigned i = 0; i < 50; ++i) strAll += Pattern(40'000, i);
    ExpectFile(Recording::PathOf("a"), strAll);
}

INSTANTIATE_TEST_SUITE_P(Host, Exit, testing::Values("busy", "forked", "twice", "late"),
                         [](const auto& aInfo) { return std::string(aInfo.param); });
