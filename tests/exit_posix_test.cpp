#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/HostTest.h"

class Exit : public testing::TestWithParam<const char*> {};

TEST_P(Exit, EveryAcceptedWriteIsInItsFile) {
    TestDir aDir;
    std::string strProgram = EXIT_HOST;
    std::string strScenario = GetParam();
    char* const lpArguments[] = {strProgram.data(), strScenario.data(), nullptr};
    pid_t nHost = 0;
    int nStatus = -1;
    ASSERT_EQ(::posix_spawn(&nHost, EXIT_HOST, nullptr, nullptr, lpArguments, environ), 0);
    ::waitpid(nHost, &nStatus, 0);
    EXPECT_EQ(nStatus, 0);
    CCmString strAll;
    for (unsigned i = 0; i < 50; ++i) strAll += Pattern(40'000, i);
    if (strScenario == "closed" || strScenario == "destroyed") strAll += "tail";
    ExpectFile(Recording::PathOf("a"), strAll);
}

INSTANTIATE_TEST_SUITE_P(Host, Exit,
                         testing::Values("busy", "forked", "late", "closed", "destroyed",
                                         "callback"),
                         [](const auto& aInfo) { return std::string(aInfo.param); });
