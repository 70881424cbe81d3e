#include "tests/support/Player.h"

// The containers of fuzz/corpus whose names begin with "lengths" show what the lengths are.

class Length : public HostModeTest {
 protected:
    /// Returns the length of a stream, or the code.
    static CmInt32 LengthOf(const Player& aPlayer, const tagFileDescriber& aDescriber) {
        CmUint32 dwLength = 4711;
        const CmInt32 lResult = aPlayer->GetStreamLength(InfoOf(aDescriber), dwLength);
        EXPECT_TRUE(lResult == 0 || dwLength == 4711);
        return lResult == 0 ? static_cast<CmInt32>(dwLength) : -lResult;
    }
};
INSTANTIATE_BOTH_MODES(Length);

TEST_P(Length, AFailureReturnsItsReason) {
    const tagFileDescriber aDescriber = DescriberOf(268, 0, 0);
    CCmString strBytes;
    SetHeader(strBytes, 100, 1, 0);
    SetEntry(strBytes, c_nHeader, {268, 0, 0, 60});
    strBytes.resize(100);
    WriteBytes("c", strBytes);
    Player aPlayer(GetParam(), nullptr);
    EXPECT_EQ(LengthOf(aPlayer, aDescriber), -4010) << "no container";
    ASSERT_EQ(aPlayer.Open("c"), 0);
    EXPECT_EQ(LengthOf(aPlayer, DescriberOf(268, 1, 0)), -4009);
    WriteBytes("c", strBytes.substr(0, 30));
    EXPECT_EQ(LengthOf(aPlayer, aDescriber), -4002) << "it changed meanwhile";
    WriteBytes("c", strBytes);
    EXPECT_EQ(LengthOf(aPlayer, aDescriber), 40);
    WriteBytes("c", "");
    EXPECT_EQ(LengthOf(aPlayer, aDescriber), 40) << "found once";
    WriteBytes("c", strBytes);
    aPlayer->CloseAllRecordFiles();
    EXPECT_EQ(LengthOf(aPlayer, aDescriber), -4007);
    Player aOther(GetParam(), nullptr);
    ASSERT_EQ(aOther.Open("c"), 0);
    CacheFileShutdown();
    EXPECT_EQ(LengthOf(aOther, aDescriber), GetParam() == Async ? -4010 : 40);
    CContainerIndex aIndex;
    ASSERT_EQ(aIndex.Open("c"), 0);
    CmUint32 dwLength = 0;
    EXPECT_EQ(aIndex.GetStreamLength(1, dwLength), 4009);
}
