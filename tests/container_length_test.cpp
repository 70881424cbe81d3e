#include <numeric>

#include "tests/support/Player.h"

namespace {

struct Entry {
    unsigned wTag;
    CmUint32 dwData;
    CmUint32 dwNoted;
    CmUint32 dwLength;  // the expected length
};

/// A packed container of 1,000 bytes, unless the case says otherwise. Its entries have the numbers
/// 0, 1, 2 and so on.
struct Case {
    const char* lpWhat;
    std::vector<Entry> vecEntries;
    CmUint32 dwDeclared = 1000;
    unsigned nFile = 1000;
};

constexpr unsigned c_wKnown = 268;

const Case c_aCases[] = {
    {"notes that fit exactly", {{268, 300, 100, 100}, {268, 400, 600, 600}}},
    {"no notes", {{268, 400, 0, 600}, {268, 300, 0, 100}}},
    {"gaps are not part of a stream that notes less", {{268, 300, 90, 90}, {268, 400, 600, 600}}},
    {"half of the notes fit", {{268, 300, 90, 90}, {268, 400, 601, 600}}},
    {"fewer than half fit", {{268, 300, 90, 100}, {268, 400, 700, 100}, {268, 500, 600, 500}}},
    {"0 on some bytes is no note", {{268, 300, 90, 90}, {268, 400, 0, 100}, {268, 500, 600, 500}}},
    {"0 on no bytes is one", {{268, 300, 701, 700}, {268, 1000, 0, 0}, {268, 1000, 0, 0}}},
    {"equal offsets, no notes", {{268, 300, 0, 0}, {268, 300, 0, 0}, {268, 300, 0, 700}}},
    {"equal offsets, notes", {{268, 300, 700, 700}, {268, 300, 701, 0}, {268, 300, 20, 20}}},
    {"an unknown entry's data are a bound", {{c_wUnknown, 350, 0, 0}, {268, 300, 0, 50}}},
    {"the entries are bounds", {{268, 8, 0, 16}, {268, 60, 0, 28}, {268, 100, 0, 20}}},
    {"data after the end", {{268, 300, 0, 700}, {268, 1001, 0, 0}, {268, 0xFFFFFFFF, 0, 0}}},
    {"the file is shorter", {{268, 300, 90, 90}, {268, 400, 600, 50}, {268, 900, 0, 0}}, 1000, 450},
    {"the header says less", {{268, 300, 0, 100}, {268, 400, 0, 100}, {268, 600, 0, 0}}, 500},
};

}  // namespace

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

TEST_P(Length, FollowsFromOffsetsAndNotes) {
    for (const Case& aCase : c_aCases) {
        SCOPED_TRACE(aCase.lpWhat);
        CCmString strBytes;
        SetHeader(strBytes, aCase.dwDeclared, static_cast<CmUint32>(aCase.vecEntries.size()), 0);
        for (std::size_t i = 0; i < aCase.vecEntries.size(); ++i) {
            const Entry& a = aCase.vecEntries[i];
            const std::size_t nAt = c_nHeader + i * c_nEntry;
            SetEntry(strBytes, nAt, {a.wTag, static_cast<CmUint32>(i), 0, a.dwData});
            Set32(strBytes, nAt + 20, a.dwNoted);
        }
        strBytes.resize(aCase.nFile, 'x');
        WriteBytes("c", strBytes);
        Player aPlayer(GetParam(), nullptr);
        ASSERT_EQ(aPlayer.Open("c"), 0);
        CContainerIndex aIndex;
        ASSERT_EQ(aIndex.Open("c"), 0);
        for (std::size_t i = 0; i < aCase.vecEntries.size(); ++i) {
            const Entry& a = aCase.vecEntries[i];
            if (a.wTag != c_wKnown) continue;
            CmUint32 dwLength = 0;
            EXPECT_EQ(LengthOf(aPlayer, DescriberOf(a.wTag, static_cast<CmUint32>(i), 0)),
                      static_cast<CmInt32>(a.dwLength))
                << i;
            EXPECT_EQ(aIndex.GetStreamLength(i, dwLength), 0);
            EXPECT_EQ(dwLength, a.dwLength) << i;
        }
    }
}

TEST_P(Length, IsRefusedWithTheReason) {
    const tagFileDescriber aDescriber = DescriberOf(c_wKnown, 0, 0);
    CCmString strBytes;
    SetHeader(strBytes, 100, 1, 0);
    SetEntry(strBytes, c_nHeader, {c_wKnown, 0, 0, 60});
    strBytes.resize(100);
    WriteBytes("c", strBytes);
    Player aPlayer(GetParam(), nullptr);
    EXPECT_EQ(LengthOf(aPlayer, aDescriber), -4010) << "no container";
    ASSERT_EQ(aPlayer.Open("c"), 0);
    EXPECT_EQ(LengthOf(aPlayer, DescriberOf(c_wKnown, 1, 0)), -4009);
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
