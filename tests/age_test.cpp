#include <array>
#include <chrono>
#include <mutex>
#include <thread>

#include "tests/support/FileLink.h"
#include "tests/support/HostTest.h"

namespace {

constexpr CmUint32 c_dwNever = 3'600'000;  // no test takes so long

/// Lets the bytes that are gathered now get older than the age of a millisecond.
void GrowOld() { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }

/// Whether the file gets these bytes while nobody here does anything for it. Gives up late, since
/// the machine may be busy.
bool ArrivesAlone(const CCmString& strPath, const CCmString& strBytes) {
    for (int i = 0; i < 3'000; ++i) {
        if (ReadBytes(strPath) == strBytes) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

}  // namespace

class Age : public HostModeTest {
 protected:
    void SetUp() override { CCacheFileManager::SetGatherAge(1); }

    Recording m_recording{GetParam(), &m_sink};
    Recording m_other{GetParam(), &m_sink};
    const CCmString m_strPath = Recording::PathOf("a");
};
INSTANTIATE_BOTH_MODES(Age);

TEST_P(Age, BytesLeaveTheBufferInTheNextCallOfAnyHandlerOrAtTheHostsWord) {
    const CmUint32 dwFile = m_recording.Open("a");
    const CmUint32 dwOther = m_other.Open("b");
    const std::function<void()> aCalls[] = {[&] { m_other.Write(dwOther, "b"); },
                                            [&] { m_other->FlushData(dwOther); },
                                            [&] { m_other.Open("c"); },
                                            [&] { m_recording.Write(dwFile, ""); },
                                            [&] { m_other.Write(dwOther, "b", 0); },
                                            [] { CCacheFileManager::FlushAged(); }};
    CCmString strFile;
    Settle();
    for (const auto& aCall : aCalls) {
        strFile += "slow";
        EXPECT_EQ(m_recording.Write(dwFile, "slow"), 0);
        for (int i = 0; i < 1000 && ReadBytes(m_strPath) != strFile; ++i) {
            GrowOld();  // in asynchronous mode the worker has to notice it too
            aCall();
            RunOn(Worker(), [] { return 0; });
        }
        ExpectFile(m_strPath, strFile);
    }
}

TEST_P(Age, YoungBytesStayAndAChangeOfTheAgeAppliesToThem) {
    CCacheFileManager::SetGatherAge(c_dwNever);
    const CmUint32 dwFile = m_recording.Open("a");
    Settle();
    EXPECT_EQ(m_recording.Write(dwFile, "young"), 0);
    GrowOld();
    CCacheFileManager::FlushAged();
    EXPECT_EQ(m_recording.Write(dwFile, "er"), 0);
    Settle();
    ExpectFile(m_strPath, "");
    for (const CmUint32 dwAge : {0U, 1U}) {
        CCacheFileManager::SetGatherAge(dwAge);
        GrowOld();
        CCacheFileManager::FlushAged();
        Settle();
        ExpectFile(m_strPath, dwAge ? "younger" : "");
    }
}

TEST_P(Age, AFlushByAgeIsNeverRefusedAndItsFailureIsLostBytes) {
    const CmUint32 dwFile = m_recording.Open("a");
    const CmUint32 dwOther = m_other.Open("b");
    Settle();
    CCacheFileManager::SetPendingLimit(1);  // counts as 65,536
    {
        const ThreadGate aGate(Worker());
        EXPECT_EQ(m_recording.Write(dwFile, "12345"), 0);
        if (GetParam() == Async) {
            EXPECT_EQ(m_other.Write(dwOther, Pattern(65'536)), 0);
        }
        GrowOld();
        CCacheFileManager::FlushAged();
        EXPECT_EQ(CCacheFileManager::GetPendingBytes(), GetParam() == Async ? 65'541U : 0U);
        EXPECT_EQ(m_other.Write(dwOther, "x", 0), GetParam() == Async ? 4013 : 0);
    }
    Settle();
    ExpectFile(m_strPath, "12345");
    EXPECT_EQ(m_lost.Take(), 0U);

    LinkScript aScript;
    aScript.FailAll("Write", 4003);
    const CRefPtr<IFileOperation> pFull =
        CFileOperationFactory::Instance()->CreateBufferDecorate(new FileLink(aScript, nullptr), 10);
    EXPECT_EQ(pFull->WriteData("123", c_dwEnd), 0);
    GrowOld();
    EXPECT_EQ(pFull->WriteData("4", c_dwEnd), 0) << "the flush does not change the call's code";
    EXPECT_EQ(m_lost.Take(), 4U);
    EXPECT_EQ(aScript.Take(), "Write 1234@end\nFlush\n");
}

TEST_P(Age, FilesMayEndWhileTheyAreDue) {
    const CmUint32 dwFile = m_recording.Open("a");
    const CmUint32 dwOther = m_other.Open("b");
    Settle();
    EXPECT_EQ(m_recording.Write(dwFile, "closed"), 0);
    EXPECT_EQ(m_other.Write(dwOther, "destroyed"), 0);
    m_sink.m_onStatus = [&] {
        EXPECT_EQ(m_recording->CloseFile(dwFile), 0);
        m_other.Destroy();
    };
    if (GetParam() == Async) {
        m_recording.Open("c");  // its report comes before the event of the age, or after it
        GrowOld();
        Settle();
    } else {
        GrowOld();
        m_sink.m_onStatus();
    }
    CCacheFileManager::FlushAged();
    Settle();
    ExpectFile(m_strPath, "closed");
    ExpectFile(Recording::PathOf("b"), "destroyed");
    EXPECT_EQ(m_lost.Take(), 0U);
}

using AsyncAge = HostTest;

TEST_F(AsyncAge, AHostThatOnlyWaitsIsWokenInTime) {
    Recording aRecording(Async, &m_sink);
    const CmUint32 dwFile = aRecording.Open("a");
    Settle();
    CCacheFileManager::SetGatherAge(20);
    CCmString strFile;
    const auto writeSlowly = [&] {
        strFile += "slow";
        EXPECT_EQ(aRecording.Write(dwFile, "slow"), 0);
    };

    writeSlowly();
    const CRefPtr<ICmEventQueue> pQueue =
        CCmThreadManager::Instance()->GetThread(CCmThreadManager::Thread_Caller)->GetEventQueue();
    EventCounts aCounts;
    std::thread aWatcher([&] {  // ends the wait, which the flush does not
        EXPECT_TRUE(ArrivesAlone(Recording::PathOf("a"), strFile));
        pQueue->PostEvent(new TestEvent(aCounts), 1);
    });
    CmUint32 dwRun = 0;
    EXPECT_EQ(CCmCallerThread::WaitAndRun(120'000, &dwRun), 0);
    EXPECT_EQ(dwRun, 1U) << "the event of the age isn't counted";
    aWatcher.join();

    Signal aWoken;
    EXPECT_EQ(CCmCallerThread::SetWakeUp([&] { aWoken.Raise(); }), 0);
    writeSlowly();
    aWoken.Wait();
    EXPECT_EQ(CCmCallerThread::RunPending(&dwRun), 0);
    EXPECT_EQ(dwRun, 0U);
    EXPECT_TRUE(ArrivesAlone(Recording::PathOf("a"), strFile));
    EXPECT_EQ(CCmCallerThread::SetWakeUp({}), 0);
}

/// While the worker is in a slow operation, a list with a synchronous file is not left to it.
TEST_F(AsyncAge, AStuckWorkerDelaysNoSynchronousFile) {
    CCacheFileManager::SetGatherAge(1);
    for (const bool bSyncFirst : {true, false}) {
        Recording aRecording(Async, &m_sink);
        Recording aDirect(Sync, nullptr);
        const CmUint32 dwFile = aRecording.Open("a");
        const CmUint32 dwDirect = aDirect.Open(bSyncFirst ? "first" : "second");
        Settle();
        const ThreadGate aGate(Worker());
        EXPECT_EQ(aDirect.Write(dwDirect, bSyncFirst ? "s" : ""), 0);
        EXPECT_EQ(aRecording.Write(dwFile, "x"), 0);
        EXPECT_EQ(aDirect.Write(dwDirect, bSyncFirst ? "low" : "slow"), 0);
        GrowOld();
        EXPECT_EQ(aDirect.Write(dwDirect, ""), 0);
        ExpectFile(Recording::PathOf(bSyncFirst ? "first" : "second"), "slow");
    }
}

TEST_F(AsyncAge, ThereIsNoneAfterDetachOrShutdown) {
    CCacheFileManager::SetGatherAge(1);
    for (const bool bDetach : {true, false}) {
        Recording aRecording(Async, &m_sink);
        Recording aDirect(Sync, nullptr);
        const CmUint32 dwFile = aRecording.Open("a");
        const CmUint32 dwDirect = aDirect.Open("b");
        Settle();
        EXPECT_EQ(aRecording.Write(dwFile, "mine"), 0);
        if (bDetach)
            m_attached.reset();
        else
            CacheFileShutdown();
        EXPECT_EQ(aDirect.Write(dwDirect, "b"), 0);
        GrowOld();
        CCacheFileManager::FlushAged();
        EXPECT_EQ(CCacheFileManager::GetPendingBytes(), 0U);
        EXPECT_EQ(m_lost.Take(), 0U);
        ExpectFile(Recording::PathOf("b"), "b");
        aRecording.Destroy();
        m_lost.Take();
        m_attached.emplace();
    }
}

/// Synchronous handlers that move from thread to thread between their calls, as in a host that
/// guards each of them by a lock. Threads end while their files have gathered bytes.
TEST(AgeThreads, AHandlerMayMoveWhileItsBytesAreDue) {
    const TestDir aDir;
    CCacheFileManager::SetGatherAge(1);
    struct tagShared {
        std::mutex aMutex;
        Recording aRecording{Sync, nullptr};
        CmUint32 dwFile = 0;
        CCmString strModel;
    };
    std::array<tagShared, 4> aShared;
    for (std::size_t i = 0; i < aShared.size(); ++i)
        aShared[i].dwFile = aShared[i].aRecording.Open(std::to_string(i));
    const auto work = [&](unsigned nSeed) {
        for (unsigned i = 0; i < 500; ++i) {
            tagShared& aOne = aShared[(i * 7 + nSeed * 3) % aShared.size()];
            const std::lock_guard<std::mutex> aLock(aOne.aMutex);
            const CCmString strPiece = Pattern(i % 300, nSeed + i);
            EXPECT_EQ(aOne.aRecording.Write(aOne.dwFile, strPiece), 0);
            aOne.strModel += strPiece;
            if (i % 50 == 0) CCacheFileManager::FlushAged();
            if (i % 16 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    };
    for (unsigned nRound = 0; nRound < 3; ++nRound) {
        std::array<std::thread, 3> aThreads;
        for (unsigned i = 0; i < aThreads.size(); ++i) aThreads[i] = std::thread(work, nRound + i);
        for (std::thread& aThread : aThreads) aThread.join();
    }
    for (std::size_t i = 0; i < aShared.size(); ++i) {
        aShared[i].aRecording.Destroy();
        ExpectFile(Recording::PathOf(std::to_string(i)), aShared[i].strModel);
    }
}

/// A file that stays open keeps the list of its thread, and with it the thread to wake.
TEST_F(AsyncAge, WakesTheHostThatIsAttachedNow) {
    CCacheFileManager::SetGatherAge(1);
    Recording aOld(Async, nullptr);
    const CmUint32 dwOld = aOld.Open("old");
    EXPECT_EQ(aOld.Write(dwOld, "x"), 0);
    Settle();
    m_attached.reset();
    m_attached.emplace();
    Recording aNew(Async, nullptr);
    const CmUint32 dwNew = aNew.Open("a");
    EXPECT_EQ(aNew.Write(dwNew, "slow"), 0);
    const CCmString strPath = Recording::PathOf("a");
    for (int i = 0; i < 3'000 && (!Exists(strPath) || ReadBytes(strPath) != "slow"); ++i)
        CCmCallerThread::WaitAndRun(10);
    ExpectFile(strPath, "slow");
}
