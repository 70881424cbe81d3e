#include "tests/faults/Memory.h"
#include "tests/support/Player.h"

/// A host that lives long attaches, opens and tears down as often as it likes: nothing of that
/// stays in memory.
class ThreadMemory : public HostTest {
 protected:
    ThreadMemory() { CCmT120Trace::instance()->SetSink({}); }

    template <class Cycle>
    static void ExpectNoGrowth(int nCycles, Cycle aCycle) {
        aCycle();  // what is made once
        const std::size_t nPieces = Memory::InUse(), nBytes = Memory::StartPeak();
        for (int i = 0; i < nCycles; ++i) aCycle();
        EXPECT_EQ(Memory::InUse(), nPieces);
        // The same piece may lie in a chunk that is some bytes larger; a cycle adds less than one.
        EXPECT_LT(Memory::StartPeak(), nBytes + static_cast<std::size_t>(nCycles));
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
    ExpectNoGrowth(1000, [&] {  // files hold the threads they were opened with, not for longer
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
}

TEST_F(ThreadMemory, DownloadHandlersLeaveNothing) {
    ExpectNoGrowth(2000, [] { Player(Async, nullptr).Destroy(); });
    CContainerWriter aWriter;
    const unsigned char aBytes[] = {1, 2, 3};
    aWriter.AddStream({8, 2, 7008, 5}, aBytes, sizeof aBytes);
    ASSERT_EQ(aWriter.Write(".\\c"), 0);
    ExpectNoGrowth(1000, [] {
        Player aPlayer(Async, nullptr);
        EXPECT_EQ(aPlayer.Open("c"), 0);
        CCmCallerThread::RunPending();
    });
}
