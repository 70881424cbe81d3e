#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "bench/Appender.h"

/// A recorder whose bytes are brought to the disk at an interval, while another process writes and
/// syncs on the same disk.

namespace {

constexpr char c_szWorkload[] = "append, synced, disk shared";
constexpr double c_dRate = 0.002;  // bytes a nanosecond: 2 MB/s

/// Another process that writes 4 MiB and syncs them, again and again, until the object ends.
class CDiskUser {
 public:
    explicit CDiskUser(const std::string& strPath)
        : m_nFile(::open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)),
          m_strBytes(4U << 20, 'y'),
          m_nProcess(::fork()) {
        Require(m_nFile >= 0 && m_nProcess >= 0, "a second process");
        ::unlink(strPath.c_str());
        while (m_nProcess == 0) {
            const bool bDone = ::pwrite(m_nFile, m_strBytes.data(), m_strBytes.size(), 0) > 0 &&
                               ::fdatasync(m_nFile) == 0;
            if (!bDone) ::_exit(1);
        }
    }
    ~CDiskUser() {
        ::kill(m_nProcess, SIGKILL);
        ::waitpid(m_nProcess, nullptr, 0);
        ::close(m_nFile);
    }
    CDiskUser(const CDiskUser&) = delete;
    CDiskUser& operator=(const CDiskUser&) = delete;

 private:
    const int m_nFile;
    const std::string m_strBytes;
    const pid_t m_nProcess;
};

MakeAppender Synced(std::uint32_t dwSyncInterval) {
    tagLibraryUse aUse;
    aUse.dwSyncInterval = dwSyncInterval;
    return Library(aUse);
}

MakeAppender Stdio(double dSyncInterval) {
    return [=](const auto& vecPaths) { return MakeStdio(vecPaths, dSyncInterval); };
}

}  // namespace

void AddSyncedAppends(tagBench& aBench) {
    const tagAppends aAppends{4, 1000, aBench.Amount(20'000)};
    const char* const lpOff = "cachefile async, no sync";
    const char* const lpSecond = "cachefile async, sync 1 s";
    const char* const lpStdio = "stdio, fdatasync 1 s";
    const tagAppenderKind aKinds[] = {
        {lpOff, Synced(0)},
        {lpSecond, Synced(1000)},
        {"cachefile async, sync 100 ms", Synced(100)},
        {lpStdio, Stdio(1)},
        {"stdio, fdatasync 100 ms", Stdio(0.1)},
#ifdef BENCH_SQLITE
        {"SQLite, WAL, NORMAL", MakeSqliteAppender},
#endif
    };
    for (const tagAppenderKind& aKind : aKinds)
        aBench.vecContestants.push_back(
            {c_szWorkload, aKind.lpName, [&aBench, aAppends, aMake = aKind.aMake] {
                 const CDiskUser aUser(aBench.Path("disk-user"));
                 return RunPaced(aBench, aAppends, aMake, c_dRate);
             }});
    aBench.vecFigures.insert(aBench.vecFigures.end(),
                             {{"asynchronous append, synced at 1 s, mean", "mean", c_szWorkload,
                               lpSecond, c_szWorkload, lpOff, 1.1},
                              {"asynchronous append, synced at 1 s, p99.9", "p99.9", c_szWorkload,
                               lpSecond, c_szWorkload, lpStdio, 0.1}});
}
