#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <tuple>

#include "capi/cachefile_c.h"
#include "fileop/FileLedger.h"
#include "fileop/FileOperation.h"
#include "tests/faults/Faults.h"
#include "tests/support/Player.h"

namespace {

constexpr CmUint32 c_dwHour = 3'600'000;

class SafetyLog final : public IFileSafetySink {
 public:
    void OnFileSynced(CmUint32 dwHandle, CmInt32 lResult) override {
        m_strLog +=
            "Synced " + std::to_string(dwHandle - m_dwFirst) + " " + std::to_string(lResult) + ", ";
    }
    void OnLowSpace(std::uint64_t qwFree) override {
        m_strLog += "Low " + std::to_string(qwFree) + ", ";
        if (m_onLowSpace) m_onLowSpace();
    }
    std::string Take() { return std::exchange(m_strLog, {}); }

    CmUint32 m_dwFirst = 0;
    std::function<void()> m_onLowSpace;

 private:
    std::string m_strLog;
};

class SyncFault : public HostModeTest {
 protected:
    ~SyncFault() override {
        Faults::HoldSyncs(false);
        EXPECT_EQ(CacheFileShutdown(), 0);
        Faults::Disarm();
        EXPECT_EQ(CCacheFileManager::GetUnsyncedBytes(), 0U);
    }

    template <class Condition>
    static void WaitFor(Condition aCondition) {
        const auto aLimit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!aCondition() && std::chrono::steady_clock::now() < aLimit)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_TRUE(aCondition());
    }

    /// Waits until so many bytes are lost by a failed sync, and for its report.
    void WaitForLoss(std::uint64_t qwBytes, const std::string& strReport) {
        std::uint64_t qwLost = 0;
        WaitFor([&] { return (qwLost += m_lost.Take()) >= qwBytes; });
        EXPECT_EQ(qwLost, qwBytes);
        WaitFor([] { return CCacheFileManager::GetUnsyncedBytes() == 0; });
        std::string strLog;
        WaitFor([&] {
            Settle();
            strLog += m_sink.Take();
            return !strLog.empty() || !IsAsync();
        });
        EXPECT_EQ(strLog, IsAsync() ? strReport : "");
    }

    /// "lost unsynced: offset+length ...", with a "!" for holes in place.
    static std::string Losses(Recording& aRecording, CmUint32 dwHandle) {
        tagFileLosses aLosses;
        EXPECT_EQ(aRecording->GetFileLosses(dwHandle, aLosses), 0);
        EXPECT_EQ(aLosses.qwPending, 0U);
        std::string strText =
            std::to_string(aLosses.qwLost) + " " + std::to_string(aLosses.qwUnsynced) + ":";
        for (const tagFileHole& aHole : aLosses.vecHoles)
            strText += " " + std::to_string(aHole.qwOffset) + "+" + std::to_string(aHole.qwLength) +
                       (aHole.bInPlace ? "!" : "");
        return strText;
    }

    static void Set(CmUint32 dwMs) { EXPECT_EQ(CCacheFileManager::SetSyncInterval(dwMs), 0); }

    bool IsAsync() const { return GetParam() == Async; }
};
INSTANTIATE_BOTH_MODES(SyncFault);

}  // namespace

TEST_P(SyncFault, NobodyWaitsForASyncAndEachHandleOfANameHasItsOwn) {
    Set(10);
    Recording aRecording(GetParam(), &m_sink);
    Faults::HoldSyncs(true);
    const CmUint32 dwOld = aRecording.Open("dir\\a");
    EXPECT_EQ(aRecording.Write(dwOld, Pattern(40'000)), 0);
    Settle();
    EXPECT_EQ(CCacheFileManager::GetUnsyncedBytes(), 40'000U);
    EXPECT_EQ(Losses(aRecording, dwOld), "0 40000:");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the thread may be in the sync
    EXPECT_EQ(aRecording->CloseFile(dwOld), 0);
    const CmUint32 dwNew = aRecording.Open("dir\\a");
    EXPECT_EQ(aRecording.Write(dwNew, Pattern(50'000)), 0);
    Settle();
    EXPECT_EQ(CCacheFileManager::GetUnsyncedBytes(), 90'000U);
    Faults::HoldSyncs(false);
    WaitFor([] { return CCacheFileManager::GetUnsyncedBytes() == 0; });
    EXPECT_EQ(Losses(aRecording, dwNew), "0 0:");
    EXPECT_EQ(m_lost.Take(), 0U);
}

TEST_P(SyncFault, AFailedSyncLosesEveryByteOnceAndIsReportedOnce) {
    for (const Faults::Call aCall : {Faults::Call_fdatasync, Faults::Call_fsync}) {
        SCOPED_TRACE(Faults::NameOf(aCall));
        Recording aRecording(GetParam(), &m_sink);
        Set(c_dwHour);
        Faults::Arm(aCall, 1, false, EIO);
        const CmUint32 dwHandle = aRecording.Open("a");
        EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 0);
        Settle();
        EXPECT_EQ(m_sink.Take(), IsAsync() ? "Open 0" : "");
        Set(10);
        WaitForLoss(40'000, "Write 4006");
        EXPECT_EQ(Losses(aRecording, dwHandle), "40000 0: 0+40000!");
        EXPECT_EQ(Faults::Disarm(), 1);
        WaitFor([&] { return CFileLedger::HasSyncFailure() || IsAsync(); });
        SafetyLog aSafety;
        aSafety.m_dwFirst = dwHandle;
        aRecording->SetSafetySink(&aSafety);
        EXPECT_EQ(aRecording->SyncFile(dwHandle), IsAsync() ? 0 : 4006)
            << "not safe by a later one";
        Settle();
        EXPECT_EQ(aSafety.Take(), IsAsync() ? "Synced 0 4006, " : "");
        aRecording->SetSafetySink(nullptr);
        EXPECT_EQ(aRecording.Write(dwHandle, "taken"), 0);
        EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
        Settle();
        WaitFor([&] { return CCacheFileManager::GetUnsyncedBytes() == 0; });
        EXPECT_EQ(m_lost.Take(), 0U) << "what follows is synced";
        EXPECT_EQ(m_sink.Take(), "");
    }
}

TEST_P(SyncFault, AFailedSyncOfAFileThatAPlayerWritesIsReportedOnce) {
    constexpr tagFileDescriber c_describer{100, 2, 100, 0};
    Set(c_dwHour);
    Faults::Arm(Faults::Call_fdatasync, 1, false, EIO);
    Player aPlayer(GetParam(), &m_sink, Player::ForFiles);
    EXPECT_EQ(aPlayer.OpenFile("a", c_describer, 1), 0);
    EXPECT_EQ(aPlayer.Write(InfoOf(c_describer), Pattern(40'000), c_dwEnd), 0);
    Settle();
    m_sink.Take();
    Set(10);
    WaitForLoss(40'000, "Write 4006");
    WaitFor([&] { return CFileLedger::HasSyncFailure() || IsAsync(); });
    for (const CmInt32 lResult : {IsAsync() ? 0 : 4006, 0})
        EXPECT_EQ(aPlayer.Write(InfoOf(c_describer), "more", c_dwEnd), lResult);
}

TEST_P(SyncFault, TheLastSyncOfAClosedFileCountsAndIsReported) {
    Recording aRecording(GetParam(), &m_sink);
    Set(c_dwHour);
    Faults::Arm(Faults::Call_fdatasync, 1, false, ENOSPC);
    for (const bool bDuplicate : {true, false}) {
        const CmUint32 dwHandle = aRecording.Open(bDuplicate ? "a" : "b");
        EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 0);
        Settle();
        if (!bDuplicate) Faults::Arm(Faults::Call_fcntl, 1, false, EMFILE);
        EXPECT_EQ(aRecording->CloseFile(dwHandle), 0) << "as without a sync";
        Settle();
        EXPECT_EQ(CCacheFileManager::GetUnsyncedBytes(), bDuplicate ? 40'000U : 0U)
            << "without a duplicate the close itself syncs";
        EXPECT_EQ(m_sink.Take(), IsAsync() ? "Open 0" : "");
        if (bDuplicate) Set(1);
        if (bDuplicate) WaitForLoss(40'000, "Write 4003");
        if (bDuplicate) Set(c_dwHour);
    }
    EXPECT_EQ(m_lost.Take(), 0U);
}

TEST_P(SyncFault, SyncFileWritesWhatIsGatheredAndReturnsHowItWent) {
    SafetyLog aSafety;
    Recording aRecording(GetParam(), &m_sink);
    const auto sync = [&](CmUint32 dwHandle, CmInt32 lResult) {
        const std::string strLog = std::to_string(lResult) + ", ";
        EXPECT_EQ(aRecording->SyncFile(dwHandle), IsAsync() ? 0 : lResult);
        Settle();
        EXPECT_EQ(aSafety.Take(), IsAsync() ? "Synced 0 " + strLog : "");
    };
    const CmUint32 dwHandle = aSafety.m_dwFirst = aRecording.Open("new\\a");
    aRecording->SetSafetySink(&aSafety);
    EXPECT_EQ(aRecording.Write(dwHandle, "gathered"), 0);
    Faults::Arm(Faults::Call_fsync, 4, false, EIO);  // its directory and three above, one of them .
    sync(dwHandle, 4006);
    ExpectFile(Recording::PathOf("new\\a"), "gathered");
    EXPECT_EQ(Losses(aRecording, dwHandle), "8 0: 0+8!") << "what was written before too";
    EXPECT_EQ(Faults::Disarm(), 1);
    EXPECT_EQ(aRecording.Write(dwHandle, "more"), 0);
    Faults::Arm(Faults::Call_fdatasync, 1, false, EIO);
    sync(dwHandle, 4006);
    EXPECT_EQ(Losses(aRecording, dwHandle), "12 0: 0+12!");
    sync(dwHandle, 0);
    EXPECT_EQ(m_lost.Take(), 12U);
    std::filesystem::create_directory("elsewhere");
    const CmUint32 dwOther = aSafety.m_dwFirst = aRecording.Open("b");
    Settle();
    std::filesystem::current_path("elsewhere");
    sync(dwOther, 4006);  // its name can't be found
    aRecording->SetSafetySink(nullptr);
    m_sink.Take();
    EXPECT_EQ(aRecording->SyncFile(dwOther), IsAsync() ? 0 : 4006);
    EXPECT_EQ(aRecording->SyncFile(99), 4010);
    Settle();
    EXPECT_EQ(m_sink.Take(), IsAsync() ? "Write 4006" : "");
    std::filesystem::current_path("..");
    aRecording->SetSafetySink(&aSafety);
    sync(dwOther, 0);  // the name is found again
    Set(c_dwHour);
    // The file can be opened, but its directories cannot.
    Faults::Arm(Faults::Call_openat, IsAsync() ? 3 : 2, true, EMFILE);
    const CmUint32 dwLast = aSafety.m_dwFirst = aRecording.Open("c");
    Settle();
    EXPECT_GT(Faults::Disarm(), 0);
    sync(dwLast, 0);
}

TEST_P(SyncFault, FilesThatWaitForTheirLastSyncDoNotUseUpTheDescriptors) {
    rlimit aBefore;
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &aBefore), 0);
    const rlimit aLimit{350, aBefore.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &aLimit), 0);
    Set(c_dwHour);
    Faults::SetSyncDelay(std::chrono::milliseconds(2));  // slower than the recorder
    Recording aRecording(GetParam(), &m_sink);
    for (int i = 0; i < 400; ++i) {
        const CmUint32 dwHandle = aRecording.Open("d" + std::to_string(i) + "\\a");
        EXPECT_EQ(aRecording.Write(dwHandle, "unsynced"), 0);
        EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    }
    Settle();
    EXPECT_EQ(m_sink.Take().find_first_not_of("Open 0,"), std::string::npos);
    EXPECT_EQ(m_lost.Take(), 0U);
    WaitFor([] { return CCacheFileManager::GetUnsyncedBytes() <= 64 * 8; });
    Faults::SetSyncDelay({});
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &aBefore), 0);
}

TEST_P(SyncFault, HolesShowWhereBytesAreMissing) {
    Recording aRecording(GetParam(), &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    const auto lose = [&](std::size_t nLength) {
        Settle();
        Faults::Arm(Faults::Call_write, 1, false, ENOSPC);
        EXPECT_EQ(aRecording.Write(dwHandle, Pattern(nLength)), 0);
        aRecording->FlushData(dwHandle);
        Settle();
        EXPECT_EQ(Faults::Disarm(), 1);
    };
    lose(100);
    EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 0);
    lose(200);
    lose(300);
    EXPECT_EQ(aRecording.Write(dwHandle, "xy"), 0);
    Faults::Arm(Faults::Call_write, 2, false, ENOSPC);
    EXPECT_EQ(aRecording.Write(dwHandle, "positioned", 50), IsAsync() ? 0 : 4003);
    Settle();
    EXPECT_EQ(Losses(aRecording, dwHandle),
              IsAsync() ? "610 0: 0+100 50+10! 40000+500" : "600 0: 0+100 40000+500")
        << "what the write returned itself is not lost";
    EXPECT_EQ(m_lost.Take(), IsAsync() ? 610U : 600U);
    ExpectFile(Recording::PathOf("a"), ReadBytes(Recording::PathOf("a")).substr(0, 40'002));
}

TEST_P(SyncFault, HostsInCSeeTheSame) {
    static std::string s_strLog;
    s_strLog.clear();
    cachefile_writer* pWriter = nullptr;
    ASSERT_EQ(cachefile_writer_create(7, IsAsync() ? CACHEFILE_ASYNC : 0, nullptr, &pWriter), 0);
    const auto onSynced = [](void* pUser, std::uint32_t dwFile, std::int32_t lResult) {
        EXPECT_EQ(*static_cast<std::uint32_t*>(pUser), dwFile);
        s_strLog += "synced " + std::to_string(lResult);
    };
    const auto onLow = [](void*, std::uint64_t qw) {
        s_strLog += "low " + std::to_string(qw) + " ";
    };
    std::uint32_t dwFile = 0;
    ASSERT_EQ(cachefile_writer_set_safety(pWriter, onSynced, onLow, 8, &dwFile), 0);
    Faults::SetFreeSpace(7);
    ASSERT_EQ(cachefile_writer_open(pWriter, "x", &dwFile), 0);
    EXPECT_EQ(cachefile_writer_append(pWriter, dwFile, "hello", 5), 0);
    EXPECT_EQ(cachefile_writer_sync(pWriter, dwFile), 0);
    Settle();
    EXPECT_EQ(s_strLog, IsAsync() ? "low 7 synced 0" : "low 7 ");
    EXPECT_EQ(cachefile_set_sync_interval(c_dwHour), 0);
    EXPECT_EQ(cachefile_writer_write(pWriter, dwFile, "J", 1, 0), 0);
    Settle();
    EXPECT_EQ(cachefile_unsynced_bytes(), 1U);
    Faults::Arm(Faults::Call_write, 1, false, EIO);
    EXPECT_EQ(cachefile_writer_append(pWriter, dwFile, "world", 5), 0);
    EXPECT_EQ(cachefile_writer_flush(pWriter, dwFile), 0);
    Settle();
    cachefile_hole aHoles[2] = {};
    cachefile_losses aLosses = CACHEFILE_LOSSES_INIT;
    EXPECT_EQ(cachefile_writer_losses(pWriter, dwFile, &aLosses, aHoles, 2), 0);
    EXPECT_EQ(std::make_tuple(aLosses.lost, aLosses.unsynced, aLosses.holes, aLosses.all_holes),
              std::make_tuple(5U, 1U, 1U, 1));
    EXPECT_EQ(std::make_tuple(aHoles[0].offset, aHoles[0].length, aHoles[0].in_place),
              std::make_tuple(5U, 5U, 0));
    aLosses.struct_size = 8;
    EXPECT_EQ(cachefile_writer_losses(pWriter, dwFile, &aLosses, nullptr, 0), 4009);
    EXPECT_EQ(cachefile_writer_losses(pWriter, 99, &aLosses, nullptr, 0), 4010);
    EXPECT_EQ(cachefile_writer_sync(nullptr, 1), 4009);
    EXPECT_EQ(cachefile_writer_set_safety(nullptr, nullptr, nullptr, 0, nullptr), 4009);
    cachefile_writer_destroy(pWriter);
}

TEST(FileLedger, PutsAHoleWherePendingBytesWillEnd) {
    const CRefPtr<IFileOperation> pFile = CFileOperationFactory::Instance()->CreateLocalFile(0);
    ASSERT_TRUE(pFile->CreateLedger());
    CFileLedger& aLedger = *pFile->Ledger();
    aLedger.Written(0, 1000, c_dwEnd);
    aLedger.Queue(10, c_dwEnd);
    aLedger.Queue(20, c_dwEnd);
    CFileLedger::LoseGathered(*pFile, 5);  // after 1030 bytes, if those are written
    aLedger.LoseQueued(10, c_dwEnd);
    aLedger.Written(1000, 20, c_dwEnd);
    const tagFileLosses aLosses = aLedger.Get();
    ASSERT_EQ(aLosses.vecHoles.size(), 2U);
    EXPECT_EQ(aLosses.vecHoles[0].qwOffset, 1000U);
    EXPECT_EQ(aLosses.vecHoles[1].qwOffset, 1020U);
    EXPECT_EQ(aLosses.qwLost, 15U);
    EXPECT_EQ(aLosses.qwPending, 0U);
}

TEST(FileLedger, JoinsRangesThatTouchOrOverlapAndKeepsALimitedNumber) {
    // Ranges are joined as a map of their bytes shows.
    SeededRandom aRandom;
    for (int nSet = 0; nSet < 200; ++nSet) {
        std::string strBytes(60, '.'), strRanges = strBytes;
        CFileRanges aSome(1);
        std::uint64_t qwSum = 0;
        for (unsigned i = aRandom.Below(8); i > 0; --i) {
            const unsigned nAt = aRandom.Below(50), nLength = aRandom.Below(10);
            aSome.Add(nAt, nLength);
            strBytes.replace(nAt, nLength, nLength, 'x');
            qwSum += nLength;
        }
        for (const tagFileHole& aRange : aSome.Get()) {
            const auto nAt = static_cast<std::size_t>(aRange.qwOffset);
            const auto nLength = static_cast<std::size_t>(aRange.qwLength);
            EXPECT_EQ(strRanges.find('x', nAt > 0 ? nAt - 1 : 0), std::string::npos)
                << "not joined";
            strRanges.replace(nAt, nLength, nLength, 'x');
        }
        EXPECT_EQ(strRanges, strBytes);
        EXPECT_EQ(aSome.Bytes(), qwSum);
    }
    CFileRanges aRanges(1);
    for (std::uint64_t i = 0; i < 1025; ++i) aRanges.Add(1024 * 20 - i * 20, 10);
    EXPECT_FALSE(aRanges.IsComplete());
    EXPECT_EQ(aRanges.Get().size(), 1024U);
    EXPECT_EQ(aRanges.Bytes(), 10'250U);
    for (std::uint64_t i = 1; i < 1024; ++i) aRanges.Add(i * 20 + 10, 10);
    ASSERT_EQ(aRanges.Get().size(), 1U);
    EXPECT_EQ(aRanges.Get()[0].qwOffset, 20U);
    EXPECT_EQ(aRanges.Get()[0].qwLength, 20U * 1023 + 10);
}

TEST_P(SyncFault, LowSpaceIsReportedOnceUntilThereIsEnoughAgain) {
    SafetyLog aSafety;
    auto pRecording = std::make_unique<Recording>(GetParam(), &m_sink);
    Recording& aRecording = *pRecording;
    aRecording->SetSafetySink(&aSafety);
    EXPECT_EQ(aRecording->SetLowSpaceMark(1000), 0);
    const CmUint32 dwHandle = aRecording.Open("a");
    const auto writeFor = [&](int nMilliseconds) {
        for (int i = 0; i < nMilliseconds / 20; ++i) {
            EXPECT_EQ(aRecording.Write(dwHandle, "1", 0), 0);
            Settle();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return aSafety.Take();
    };
    Faults::SetFreeSpace(999);
    EXPECT_EQ(writeFor(1100), "Low 999, ");
    EXPECT_EQ(aRecording->SetLowSpaceMark(1000), 0);  // again
    EXPECT_EQ(writeFor(1100), "Low 999, ");
    Faults::SetFreeSpace(1000);
    EXPECT_EQ(writeFor(1100), "");
    Faults::SetFreeSpace(5);
    aSafety.m_onLowSpace = [&] { pRecording->Destroy(); };  // and the write touches nothing more
    for (int i = 0; i < 200 && aSafety.Take().empty(); ++i) {
        EXPECT_EQ(aRecording.Write(dwHandle, "1", 0), 0);
        Settle();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    pRecording.reset();
}

TEST_P(SyncFault, ManySyncsWhileFilesComeAndGoAndTheProcessForks) {
    EXPECT_EQ(CCacheFileManager::SetSyncInterval(1), 0);
    Recording aRecording(GetParam(), &m_sink);
    std::atomic<bool> bEnd{false};
    std::thread aOther([&] {  // any thread may set it
        for (CmUint32 i = 0; !bEnd; ++i) {
            Set(i % 3);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    for (int i = 0; i < 100; ++i) {
        const CmUint32 dwHandle = aRecording.Open("d" + std::to_string(i % 3) + "\\a");
        for (int k = 0; k < 5; ++k) EXPECT_EQ(aRecording.Write(dwHandle, Pattern(10'000)), 0);
        EXPECT_EQ(i % 5 == 0 ? aRecording->SyncFile(dwHandle) : 0, 0);
        EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
        if (i % 10 != 0) continue;
        const pid_t nChild = ::fork();
        if (nChild == 0) {
            ::alarm(60);
            Recording aOwn(Sync, nullptr);
            const CmUint32 dwOwn = aOwn.Open("child");
            const bool bGood = CCacheFileManager::SetSyncInterval(1) == 4010 &&
                               aOwn.Write(dwOwn, Pattern(40'000)) == 0 &&
                               aOwn->SyncFile(dwOwn) == 0 && aOwn->CloseFile(dwOwn) == 0;
            ::_exit(bGood ? 0 : 1);
        }
        int nStatus = -1;
        EXPECT_EQ(::waitpid(nChild, &nStatus, 0), nChild);
        EXPECT_EQ(nStatus, 0);
    }
    bEnd = true;
    aOther.join();
    EXPECT_EQ(CacheFileShutdown(), 0);
    EXPECT_EQ(CCacheFileManager::GetUnsyncedBytes(), 0U);
    EXPECT_EQ(m_lost.Take(), 0U);
}

TEST(SyncAtExit, ComesAfterTheLastWriteWhicheverWasFirst) {
    for (const bool bIntervalFirst : {true, false}) {
        const TestDir aDir;
        const pid_t nHost = ::fork();
        if (nHost == 0) {
            std::atexit([] { ::_exit(CCacheFileManager::GetUnsyncedBytes() == 0 ? 0 : 1); });
            Faults::SetWriteDelay(std::chrono::milliseconds(5));  // the worker is busy at the exit
            CCmCallerThread::Attach();
            if (bIntervalFirst) CCacheFileManager::SetSyncInterval(c_dwHour);
            auto* const pRecording = new Recording(Async, nullptr);
            const CmUint32 dwHandle = pRecording->Open("a");
            if (!bIntervalFirst) CCacheFileManager::SetSyncInterval(c_dwHour);
            for (int i = 0; i < 50; ++i) pRecording->Write(dwHandle, Pattern(40'000));
            std::exit(2);
        }
        int nStatus = -1;
        EXPECT_EQ(::waitpid(nHost, &nStatus, 0), nHost);
        EXPECT_EQ(nStatus, 0) << bIntervalFirst;
    }
}
