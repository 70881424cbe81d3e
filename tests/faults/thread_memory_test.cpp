#include "tests/faults/Memory.h"
#include "tests/support/HostTest.h"

/// Checks that a long-running host can attach, open and shut down any number of times without using
/// more memory. Only a few cycles start a worker, because on a busy machine each of them waits
/// several times for a processor.
class ThreadMemory : public HostTest {
 protected:
    ThreadMemory() { CCmT120Trace::instance()->SetSink({}); }

    template <class Cycle>
    static void ExpectNoGrowth(int nCycles, Cycle aCycle) {
        aCycle();  // creates objects that exist once
        const std::size_t nPieces = Memory::InUse(), nBytes = Memory::StartPeak();
        for (int i = 0; i < nCycles; ++i) aCycle();
        EXPECT_EQ(Memory::InUse(), nPieces);
        // The allocator may use chunks that are slightly larger, so a few bytes are not a leak.
        EXPECT_LT(Memory::StartPeak(), nBytes + 8 * static_cast<std::size_t>(nCycles));
    }

    void Reattach() {
        m_attached.reset();
        m_attached.emplace();
    }
};

TEST_F(ThreadMemory, AttachingAndDetachingLeavesNothing) {
    ExpectNoGrowth(3000, [this] { Reattach(); });
    CmUint32 dwHandle = 0;
    std::optional<Recording> aRecording;
    const std::size_t nBytes = Memory::StartPeak();
    ExpectNoGrowth(200, [&] {  // files hold their threads until they are closed
        aRecording.emplace(Async, nullptr);
        for (const char* lpName : {"a", "b"}) {
            dwHandle = aRecording->Open(lpName);
            Reattach();
        }
        aRecording->Write(dwHandle, "bytes");
        CacheFileShutdown();
        EXPECT_EQ((*aRecording)->CloseFile(dwHandle), 4010);
        aRecording.reset();
    });
    CacheFileShutdown();  // the close has returned a block to the store
    EXPECT_LT(Memory::StartPeak(), nBytes + 32768) << "a shutdown frees the blocks that are kept";
}

TEST_F(ThreadMemory, AFailedOpenLeavesNothing) {
    std::filesystem::create_directories("kvr2/7/directory");
    Recording aRecording(Sync, nullptr);
    ExpectNoGrowth(100, [&] { EXPECT_EQ(aRecording.TryOpen("directory"), 4006); });
}
