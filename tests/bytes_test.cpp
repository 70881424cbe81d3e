#include <array>

#include "tests/support/HostTest.h"

using Bytes = HostModeTest;
INSTANTIATE_BOTH_MODES(Bytes);

TEST_P(Bytes, RandomCallsOnSeveralFilesGiveWhatAModelGives) {
    struct File {
        CCmString strName;
        CmUint32 dwHandle = 0;  // 0: closed
        CCmString strModel = {};
    };
    std::array<File, 4> aFiles{{{"a"}, {"b"}, {"c\\d.bin"}, {"c\\e.bin"}}};
    SeededRandom aRandom;
    Recording aRecording(GetParam(), &m_sink);

    for (int nStep = 0; nStep < 400; ++nStep) {
        File& aFile = aFiles[aRandom.Below(4)];
        const unsigned nDice = aRandom.Below(100);
        if (!aFile.dwHandle) {
            aFile.dwHandle = aRecording.Open(aFile.strName);
            aFile.strModel.clear();
        } else if (nDice < 60) {
            const CCmString strBytes = aRandom.Bytes(aRandom.Below(nDice < 40 ? 3000 : 100'001));
            ASSERT_EQ(aRecording.Write(aFile.dwHandle, strBytes), 0);
            Overwrite(aFile.strModel, strBytes, c_dwEnd);
        } else if (nDice < 88) {
            const CCmString strBytes = aRandom.Bytes(aRandom.Below(5000));
            const unsigned nOffset =
                aRandom.Below(static_cast<unsigned>(aFile.strModel.size()) + 2000);
            ASSERT_EQ(aRecording.Write(aFile.dwHandle, strBytes, nOffset), 0);
            Overwrite(aFile.strModel, strBytes, nOffset);
        } else if (nDice < 95) {
            aRecording->FlushData(aFile.dwHandle);
            Settle();
            ExpectFile(Recording::PathOf(aFile.strName), aFile.strModel);
        } else {
            ASSERT_EQ(aRecording->CloseFile(aFile.dwHandle), 0);
            aFile.dwHandle = 0;
        }
    }
    aRecording.Destroy();  // closes what is open
    CacheFileShutdown();
    for (const File& aFile : aFiles) ExpectFile(Recording::PathOf(aFile.strName), aFile.strModel);
    EXPECT_EQ(m_lost.Take(), 0U);
    EXPECT_EQ(m_trace.TakeErrors(), "");
}

TEST_P(Bytes, AppendsReachTheFileInBlocks) {
    Recording aRecording(GetParam(), &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    CCmString strAll;
    const auto append = [&](std::size_t dwLength) {
        const CCmString strPiece = Pattern(dwLength, static_cast<unsigned>(strAll.size()));
        EXPECT_EQ(aRecording.Write(dwHandle, strPiece), 0);
        strAll += strPiece;
    };
    const auto expectFirst = [&](std::size_t dwLength) {
        Settle();
        ExpectFile(Recording::PathOf("a"), strAll.substr(0, dwLength));
    };
    for (int i = 0; i < 32; ++i) append(1000);
    expectFirst(0);
    append(1000);  // the block is full now
    expectFirst(33'000);
    append(3 * 32768);
    append(0);
    expectFirst(33'000 + 3 * 32768);
    append(500);
    expectFirst(33'000 + 3 * 32768);
    aRecording->FlushData(dwHandle);
    expectFirst(strAll.size());
    append(32767);
    EXPECT_EQ(aRecording.Write(dwHandle, "first", 0), 0);  // after what is gathered
    strAll.replace(0, 5, "first");
    expectFirst(strAll.size());
    append(1);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
    expectFirst(strAll.size());
}

TEST_P(Bytes, TwoHandlesOfOneFileAppendBehindEachOther) {
    Recording aRecording(GetParam(), &m_sink);
    const CmUint32 dwFirst = aRecording.Open("a");
    const auto write = [&](CmUint32 dwHandle, const CCmString& strBytes) {
        EXPECT_EQ(aRecording.Write(dwHandle, strBytes), 0);
        aRecording->FlushData(dwHandle);
    };
    write(dwFirst, "emptied by the second open");
    const CmUint32 dwSecond = aRecording.Open("a");
    write(dwFirst, "one ");
    write(dwSecond, "two ");
    write(dwFirst, "three");
    CacheFileShutdown();
    ExpectFile(Recording::PathOf("a"), "one two three");
}
