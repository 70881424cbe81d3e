#pragma once

#include <gtest/gtest.h>

#include <limits>
#include <optional>

#include "cachefile.h"
#include "platform/CmThreadManager.h"
#include "tests/support/Events.h"
#include "tests/support/Files.h"
#include "tests/support/SinkLog.h"
#include "tests/support/TraceLog.h"

constexpr CmUint32 c_dwEnd = 0xFFFFFFFF;

enum Mode { Sync = 0, Async = 1 };
inline std::string ModeName(const testing::TestParamInfo<Mode>& aInfo) {
    return aInfo.param == Async ? "Async" : "Sync";
}

/// Returns the increase of the library's count of lost bytes since the last call.
class LostBytes {
 public:
    std::uint64_t Take() {
        const std::uint64_t qwBefore = m_qwSeen;
        m_qwSeen = CCacheFileManager::GetLostBytes();
        return m_qwSeen - qwBefore;
    }

 private:
    std::uint64_t m_qwSeen = CCacheFileManager::GetLostBytes();
};

constexpr std::uint64_t c_qwNoLimit = std::numeric_limits<std::uint64_t>::max();

/// A host with an attached thread, in an empty directory. Its trace and its callbacks are recorded.
/// Settings of the whole process are reset after the test.
class HostTest : public testing::Test {
 protected:
    HostTest();
    ~HostTest() override;

    static CRefPtr<ACmThread> Worker();
    static CRefPtr<ICmEventQueue> HostQueue();  // of the attached thread

    /// Waits until the worker's queue is empty and runs the callbacks. The worker continues.
    static void Settle();

    TestDir m_dir;
    TraceLog m_trace;
    SinkLog m_sink;
    LostBytes m_lost;
    std::optional<CCmCallerThreadGuard> m_attached;
};

/// A host test that runs in both modes.
class HostModeTest : public HostTest, public testing::WithParamInterface<Mode> {};

#define INSTANTIATE_BOTH_MODES(suite) \
    INSTANTIATE_TEST_SUITE_P(Modes, suite, testing::Values(Sync, Async), ModeName)

/// A write handler that expects its files to open. Its directory is .\kvr2\7\ at first.
class Recording {
 public:
    Recording(Mode aMode, IFileOpSink* pSink);
    ~Recording() { Destroy(); }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    CmUint32 Open(const CCmString& strName);
    CmInt32 TryOpen(const CCmString& strName);  // returns the result and drops the handle
    CmInt32 Write(CmUint32 dwHandle, const CCmString& strBytes, CmUint32 dwOffset = c_dwEnd);
    void Destroy();
    CWriteFileHandler* operator->() const { return m_pHandler; }

    static CCmString PathOf(const CCmString& strName) { return ".\\kvr2\\7\\" + strName; }

 private:
    CWriteFileHandler* m_pHandler;
};

CmInt32 AddStream(CContainerWriter& aWriter, const tagFileDescriber& aDescriber,
                  const CCmString& strBytes);

/// Expects a file with these bytes.
void ExpectFile(const CCmString& strPath, const CCmString& strBytes);
