#include "tests/support/Player.h"

namespace {

const tagFileDescriber c_describer{100, 2, 100, 0};

std::uint64_t Waiting() { return CCacheFileManager::GetPendingBytes(); }

}  // namespace

using Pending = HostTest;

TEST_F(Pending, BytesCountFromTheHandingOverUntilTheWorkerIsDoneWithThem) {
    Recording aGood(Async, &m_sink);
    Recording aBad(Async, &m_sink);
    Player aPlayer(Async, &m_sink);
    aBad->SetHomeDir("nowhere\\");
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
        EXPECT_EQ(aPlayer.OpenFile("p", c_describer, 1), 0);
        EXPECT_EQ(aPlayer.Write(InfoOf(c_describer), "played", 0), 0);
        EXPECT_EQ(Waiting(), 90'016U);
    }
    Settle();
    EXPECT_EQ(m_sink.Take(), "Open 0, Open 4001, Write 4006, Open 0");
    EXPECT_EQ(Waiting(), 0U);
    CacheFileShutdown();
    EXPECT_EQ(aGood.Write(dwGood, Pattern(40'000)), 4010) << "refused by the ended worker";
    EXPECT_EQ(Waiting(), 0U);
    CCacheFileManager::SetPendingLimit(1);
    EXPECT_EQ(aGood.Write(dwGood, Pattern(70'000)), 4010) << "which no later try would change";
}

TEST_F(Pending, ALimitRefusesPiecesBeforeAnythingIsTakenOfThem) {
    CCacheFileManager::SetPendingLimit(1);  // counts as 65,536
    Recording aRecording(Async, &m_sink);
    Player aPlayer(Async, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    EXPECT_EQ(aPlayer.OpenFile("p", c_describer, 1), 0);
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
        EXPECT_EQ(aPlayer.Write(InfoOf(c_describer), ConfBytes(1, 2), 0), 4013);
        EXPECT_EQ(aPlayer->GetCBTimeStamp(), 0U) << "nothing was taken of it";
        Recording aDirect(Sync, nullptr);
        EXPECT_EQ(aDirect.Write(aDirect.Open("sync"), Pattern(100'000)), 0);
        aRecording->FlushData(dwHandle);
        EXPECT_EQ(Waiting(), 98'303U) << "a flush is never refused";
        CCacheFileManager::SetPendingLimit(98'304);
        EXPECT_EQ(aPlayer.Write(InfoOf(c_describer), "p", 0), 0);
    }
    Settle();
    EXPECT_EQ(Waiting(), 0U);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    Settle();
    ExpectFile(Recording::PathOf("a"), strModel);
    EXPECT_EQ(m_sink.Take(), "Open 0, Open 0");
    EXPECT_EQ(m_trace.TakeErrors(), "");
}
