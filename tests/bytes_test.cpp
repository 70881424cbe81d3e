#include <array>

#include "tests/support/HostTest.h"

using Bytes = HostModeTest;
INSTANTIATE_BOTH_MODES(Bytes);

TEST_P(Bytes, RandomCallsGiveTheFilesOfAModel) {
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
        } else if (nDice < 88) {
            const bool bAppend = nDice < 60;
            const unsigned nLimit = nDice < 40 ? 3000 : bAppend ? 100'001 : 5000;
            const CCmString strBytes = aRandom.Bytes(aRandom.Below(nLimit));
            const auto nSize = static_cast<unsigned>(aFile.strModel.size());
            const CmUint32 dwOffset = bAppend ? c_dwEnd : aRandom.Below(nSize + 2000);
            ASSERT_EQ(aRecording.Write(aFile.dwHandle, strBytes, dwOffset), 0);
            Overwrite(aFile.strModel, strBytes, dwOffset);
        } else if (nDice < 95) {
            aRecording->FlushData(aFile.dwHandle);
            Settle();
            ExpectFile(Recording::PathOf(aFile.strName), aFile.strModel);
        } else {
            ASSERT_EQ(aRecording->CloseFile(aFile.dwHandle), 0);
            aFile.dwHandle = 0;
        }
    }
    aRecording.Destroy();  // closes the open files
    CacheFileShutdown();
    for (const File& aFile : aFiles) ExpectFile(Recording::PathOf(aFile.strName), aFile.strModel);
    EXPECT_EQ(m_lost.Take(), 0U);
    EXPECT_EQ(m_trace.TakeErrors(), "");
}
