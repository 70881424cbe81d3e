#include <cerrno>

#include "tests/faults/Faults.h"
#include "tests/faults/Session.h"

void WriteSession(Session& aHost);
void PlayFilesSession(Session& aHost);
void PlayContainerSession(Session& aHost);
void PackSession(Session& aHost);

namespace {

struct Case {
    const char* lpName;
    void (*pSession)(Session&);
    Mode aMode;
};

const Case c_aCases[] = {
    {"WriteSync", WriteSession, Sync},
    {"WriteAsync", WriteSession, Async},
    {"PlayFilesSync", PlayFilesSession, Sync},
    {"PlayFilesAsync", PlayFilesSession, Async},
    {"PlayContainerSync", PlayContainerSession, Sync},
    {"PlayContainerAsync", PlayContainerSession, Async},
    {"Pack", PackSession, Sync},
};

/// The codes that may be heard when a call of the system fails so.
std::set<CmInt32> CodesOf(Faults::Call aCall, int nErrno) {
    std::set<CmInt32> aCodes{4006, 4010};
    const bool bTransfers = aCall == Faults::Call_fwrite || aCall == Faults::Call_fread;
    if (nErrno == ENOSPC) aCodes.insert(4003);
    if (nErrno == EACCES && !bTransfers) aCodes.insert({4004, 4012});
    return aCodes;
}

/// A session in an empty directory, again and again with another failure.
class Sweep : public testing::TestWithParam<Case> {
 protected:
    void Run(const std::set<CmInt32>& aCodes, bool bLowMemory) {
        std::filesystem::remove_all("kvr2");
        Session aHost(GetParam().aMode, aCodes, bLowMemory);
        GetParam().pSession(aHost);
    }

    /// The pieces of memory and the open files that a session leaves behind.
    std::size_t CountLeft(const std::set<CmInt32>& aCodes, bool bLowMemory) {
        const std::size_t nBefore = Memory::InUse() + CountOpenFiles();
        Run(aCodes, bLowMemory);
        return Memory::InUse() + CountOpenFiles() - nBefore;
    }

    static std::size_t CountOpenFiles() {
        const std::filesystem::directory_iterator aOpen("/dev/fd");
        return static_cast<std::size_t>(std::distance(begin(aOpen), end(aOpen)));
    }

    const Memory::Scope m_outside{false};
    TestDir m_dir;
};

INSTANTIATE_TEST_SUITE_P(Sessions, Sweep, testing::ValuesIn(c_aCases),
                         [](const auto& aInfo) { return std::string(aInfo.param.lpName); });

}  // namespace

TEST_P(Sweep, OfTheSystemsCalls) {
    Run({}, false);
    // Threads that have ended leave an object behind, which nothing may add to.
    const std::size_t nLeft = CountLeft({}, false);
    int nSessions = 0;
    for (int nCall = 0; nCall < Faults::Call_Count; ++nCall)
        for (const int nErrno : {ENOSPC, EIO, EACCES, EINTR, 0})
            for (const bool bForEver : {false, true}) {
                const auto aCall = static_cast<Faults::Call>(nCall);
                for (int nNth = 1;; ++nNth) {
                    SCOPED_TRACE(std::string(Faults::NameOf(aCall)) + " " + std::to_string(nNth) +
                                 (bForEver ? " and on" : "") + ", errno " + std::to_string(nErrno));
                    Faults::Arm(aCall, nNth, bForEver, nErrno);
                    const std::size_t nNowLeft = CountLeft(CodesOf(aCall, nErrno), false);
                    const bool bMet = Faults::Disarm() > 0;
                    ++nSessions;
                    EXPECT_LE(nNowLeft, nLeft);
                    if (bMet) Run({}, false);
                    if (HasFailure()) return;
                    if (!bMet) break;
                }
            }
    std::cout << nSessions << " sessions" << std::endl;
}

TEST_P(Sweep, OfTheRequestsForMemory) {
    Run({}, false);
    const std::size_t nLeft = CountLeft({}, false);
    int nSessions = 0;
    for (const bool bForEver : {false, true})
        for (int nNth = 1;; ++nNth) {
            SCOPED_TRACE(std::to_string(nNth) + (bForEver ? " and on" : ""));
            Memory::Arm(nNth, bForEver);
            const std::size_t nNowLeft = CountLeft({4006, 4010, 4011}, true);
            const bool bMet = Memory::Disarm() > 0;
            ++nSessions;
            EXPECT_LE(nNowLeft, nLeft);
            if (bMet) Run({}, false);
            if (HasFailure()) return;
            if (!bMet) break;
        }
    std::cout << nSessions << " sessions" << std::endl;
}
