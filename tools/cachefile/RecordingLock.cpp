#include "tools/cachefile/RecordingLock.h"

#include <chrono>
#include <thread>

#include "tools/cachefile/Recording.h"

namespace {

/// Together about 100 ms, which is much longer than a process needs to look at the lock.
constexpr int c_nLockTries = 4;
constexpr std::chrono::milliseconds c_aLockPause(30);

}  // namespace

System::CFileLock::Outcome TakeRecordingLock(const std::filesystem::path& aDirectory,
                                             std::optional<System::CFileLock>& aLock) {
    for (int nTry = 1;; ++nTry) {
        const auto aOutcome = aLock.emplace().Take(aDirectory / c_szRecordingLock);
        if (aOutcome != System::CFileLock::Held || nTry == c_nLockTries) return aOutcome;
        std::this_thread::sleep_for(c_aLockPause);
    }
}
