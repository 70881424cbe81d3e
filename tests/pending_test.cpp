#include <atomic>
#include <chrono>

#include "tests/support/Player.h"

namespace {

std::uint64_t Waiting() { return CCacheFileManager::GetPendingBytes(); }

}  // namespace

using Pending = HostTest;

TEST_F(Pending, BytesArePendingUntilTheWorkerIsDoneWithThem) {
    Recording aGood(Async, &m_sink);
    Recording aBad(Async, &m_sink);
    Player aPlayer(Async, &m_sink);
    aBad->SetHomeDir("nowhere\\");
    CCacheFileManager::SetPendingLimit(std::uint64_t{1} << 32);  // far above all that follows
    EXPECT_EQ(aGood->SetPendingLimit(std::uint64_t{1} << 32), 0);
    const CmUint32 dwGood = aGood.Open("a");
    {
        const ThreadGate aGate(Worker());
        EXPECT_EQ(aGood.Write(dwGood, Pattern(40'000)), 0);
        EXPECT_EQ(Waiting(), 40'000U);
        EXPECT_EQ(aGood.Write(dwGood, "gathered"), 0);
        EXPECT_EQ(Waiting(), 40'000U);
        EXPECT_EQ(aGood.Write(dwGood, "AB", 3), 0);
        EXPECT_EQ(Waiting(), 40'010U);
        EXPECT_EQ(aBad.Write(aBad.Open("a"), Pattern(50'000)), 0);  // the open fails on the worker
        EXPECT_EQ(aPlayer.OpenFile("p", c_aStream, 1), 0);
        EXPECT_EQ(aPlayer.Write(c_aInfo, "played", 0), 0);
        EXPECT_EQ(Waiting(), 90'016U);
    }
    Settle();
    EXPECT_EQ(m_sink.Take(), "Open 0, Open 4001, Write 4006, Open 0");
    EXPECT_EQ(Waiting(), 0U);
    CacheFileShutdown();
    EXPECT_EQ(aGood.Write(dwGood, Pattern(40'000)), 4010) << "the worker has ended";
    EXPECT_EQ(Waiting(), 0U);
    CCacheFileManager::SetPendingLimit(1);
    EXPECT_EQ(aGood.Write(dwGood, Pattern(70'000)), 4010) << "a later try cannot succeed";
}

TEST_F(Pending, ALimitRefusesWholePieces) {
    CCacheFileManager::SetPendingLimit(1);  // counts as 65,536
    Recording aRecording(Async, &m_sink);
    Player aPlayer(Async, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    EXPECT_EQ(aPlayer.OpenFile("p", c_aStream, 1), 0);
    CCmString strModel;
    {
        const ThreadGate aGate(Worker());
        const struct {
            std::size_t dwLength;
            CmUint32 dwOffset;
            CmInt32 lResult;
            std::uint64_t qwPending;
        } aSteps[] = {{65'537, c_dwEnd, 4011, 0},      {32'768, c_dwEnd, 0, 32'768},
                      {32'767, c_dwEnd, 0, 32'768},    {2, 0, 4013, 32'768},
                      {1, c_dwEnd, 0, 65'536},         {32'767, c_dwEnd, 0, 65'536},
                      {1, c_dwEnd, 4013, 65'536},      {1, 0, 4013, 65'536},
                      {32'769, c_dwEnd, 4013, 65'536}, {32'770, c_dwEnd, 4011, 65'536},
                      {0, c_dwEnd, 0, 65'536}};
        for (const auto& aStep : aSteps) {
            const CCmString strPiece =
                Pattern(aStep.dwLength, static_cast<unsigned>(strModel.size()));
            EXPECT_EQ(aRecording.Write(dwHandle, strPiece, aStep.dwOffset), aStep.lResult);
            EXPECT_EQ(Waiting(), aStep.qwPending);
            if (aStep.lResult == 0) Overwrite(strModel, strPiece, aStep.dwOffset);
        }
        EXPECT_EQ(aPlayer.Write(c_aInfo, ConfBytes(1, 2), 0), 4013);
        EXPECT_EQ(aPlayer->GetCBTimeStamp(), 0U) << "a refused block is not read";
        Recording aDirect(Sync, nullptr);
        EXPECT_EQ(aDirect.Write(aDirect.Open("sync"), Pattern(100'000)), 0);
        aRecording->FlushData(dwHandle);
        EXPECT_EQ(Waiting(), 98'303U) << "a flush is never refused";
        EXPECT_EQ(aRecording.Write(dwHandle, ""), 0) << "it needs no room";
        CCacheFileManager::SetPendingLimit(98'304);
        EXPECT_EQ(aPlayer.Write(c_aInfo, "p", 0), 0);
    }
    Settle();
    EXPECT_EQ(Waiting(), 0U);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    Settle();
    ExpectFile(Recording::PathOf("a"), strModel);
    EXPECT_EQ(m_sink.Take(), "Open 0, Open 0");
    EXPECT_EQ(m_trace.TakeErrors(), "");
}

using Room = HostTest;

/// Refused by each of the two limits, and waiting in each way, a host is woken once. The gate keeps
/// the worker from finishing anything before the host waits.
TEST_F(Room, ARefusedHostIsWokenOnceWhenThePieceFits) {
    CCacheFileManager::SetRoomWakeUp(1);
    for (const bool bHandlersLimit : {false, true}) {
        Recording aRecording(Async, &m_sink);
        const CmUint32 dwHandle = aRecording.Open("a");
        Settle();
        if (bHandlersLimit)
            EXPECT_EQ(aRecording->SetPendingLimit(1), 0);
        else
            CCacheFileManager::SetPendingLimit(1);  // counts as 65,536
        std::atomic<int> nCalled{0};
        Signal aWoken;
        const auto refuse = [&] {
            EXPECT_EQ(aRecording.Write(dwHandle, Pattern(65'536)), 0);
            EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 4013);
            EXPECT_EQ(aRecording.Write(dwHandle, Pattern(50'000)), 4013);
        };
        CmUint32 dwRun = 99;
        {
            ThreadGate aGate(Worker());
            refuse();
            EXPECT_EQ(CCmCallerThread::RunPending(&dwRun), 0);
            EXPECT_EQ(dwRun, 0U);
            aGate.Open();
            EXPECT_EQ(CCmCallerThread::WaitAndRun(120'000, &dwRun), 0);
            EXPECT_EQ(dwRun, 0U) << "it isn't counted";
            EXPECT_EQ(aRecording.Write(dwHandle, Pattern(40'000)), 0);
        }
        Settle();
        EXPECT_EQ(CCmCallerThread::SetWakeUp([&] {
                      if (++nCalled == 1) aWoken.Raise();
                  }),
                  0);
        {
            ThreadGate aGate(Worker());
            refuse();
            aGate.Open();
            aWoken.Wait();
            EXPECT_EQ(aRecording.Write(dwHandle, Pattern(50'000)), 0);
        }
        Settle();
        EXPECT_EQ(nCalled, 1);
        EXPECT_EQ(CCmCallerThread::SetWakeUp({}), 0);
        CCacheFileManager::SetPendingLimit(c_qwNoLimit);
    }
    EXPECT_EQ(m_sink.Take(), "Open 0, Open 0");
}

/// Many refusals against a worker that finishes as fast as it can: no wake-up is missed.
TEST_F(Room, NoWakeUpIsLost) {
    CCacheFileManager::SetRoomWakeUp(1);
    CCacheFileManager::SetPendingLimit(1);
    Recording aRecording(Async, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    Settle();
    const CCmString strPiece = Pattern(32'768);
    int nRefused = 0;
    const auto aLimit = std::chrono::steady_clock::now() + std::chrono::seconds(100);
    for (int i = 0; i < 2'000; ++i) {
        while (aRecording.Write(dwHandle, strPiece, (i % 64) * 32'768) == 4013) {
            ++nRefused;
            EXPECT_EQ(CCmCallerThread::WaitAndRun(3'600'000), 0);
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now(), aLimit);
    EXPECT_GT(nRefused, 0);
}

/// A handler with a limit leaves the others what is left of the limit of the process.
TEST_F(Room, AHandlersLimitLeavesRoomForOthers) {
    Recording aVideo(Async, &m_sink);
    Recording aControl(Async, &m_sink);
    const CmUint32 dwEarly = aVideo.Open("early");
    const CmUint32 dwControl = aControl.Open("control");
    Settle();
    CCacheFileManager::SetPendingLimit(200'000);
    EXPECT_EQ(aVideo->SetPendingLimit(100'000), 0);
    const CmUint32 dwLate = aVideo.Open("late");
    const ThreadGate aGate(Worker());
    EXPECT_EQ(aVideo.Write(dwEarly, Pattern(60'000)), 0);
    EXPECT_EQ(aVideo.Write(dwLate, Pattern(60'000)), 4013);
    EXPECT_EQ(aVideo.Write(dwLate, Pattern(100'001)), 4011);
    EXPECT_EQ(aVideo.Write(dwLate, Pattern(40'000)), 0);
    EXPECT_EQ(aControl.Write(dwControl, Pattern(90'000)), 0);
    EXPECT_EQ(aControl.Write(dwControl, Pattern(40'000)), 4013) << "the limit of the process";
}
