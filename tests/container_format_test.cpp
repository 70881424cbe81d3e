#include "tests/support/Player.h"

TEST(ContainerFormat, KnowsTheTwentyTagsAndNoOther) {
    for (unsigned wTag = 0; wTag <= 0xFFFF; ++wTag) {
        const tagFileDescriber aBefore{1, 2, 3, 4};
        tagFileDescriber aDescriber = aBefore;
        const tagMRFD aEntry{static_cast<std::uint16_t>(wTag), 0, 4294968, 77, 0, 0, 0, 0, 0};
        const bool bKnown = FindTagRow(wTag) != nullptr;
        ASSERT_EQ(TagToFileDescriber(aEntry, aDescriber), bKnown ? 0 : 10001) << wTag;
        ASSERT_EQ(aDescriber, bKnown ? DescriberOf(wTag, 4294968, 77) : aBefore) << wTag;
    }
}

TEST(ContainerFormat, AnIdIsExpressedByTheSmallestNumberThatGivesIt) {
    SeededRandom aRandom;
    for (int i = 0; i < 2000; ++i) {
        const CmUint32 dwEntryID =
            i < 4 ? 0xFFFFFFFF - static_cast<unsigned>(i) * 0x20000000 : aRandom.Below(0xFFFFFFFF);
        const unsigned wTag = c_aTagRows[i % 20].wTag;
        const tagFileDescriber aDescriber = DescriberOf(wTag, dwEntryID, 5);
        tagMRFD aEntry{};
        ASSERT_EQ(FileDescriberToTag(aDescriber, aEntry), 0) << aDescriber;
        ASSERT_EQ(aEntry.wTag, wTag);
        const bool bFixed = wTag == 274 || wTag == 284;
        ASSERT_EQ(aEntry.dwEntryID, bFixed ? 0 : dwEntryID % 0x20000000);
        ASSERT_EQ(aEntry.dwExtraInfo, 5U);
    }
}
