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

TEST(ContainerFormat, EveryFieldIsReadFromItsPlace) {
    const CCmString strBytes = Pattern(c_nConfHeader, 3);
    const auto* const lpBytes = reinterpret_cast<const unsigned char*>(strBytes.data());
    tagQXFFileHeader h{};
    ASSERT_EQ(BuildQXFFileHeader(lpBytes, h), 0);
    const CmUint32 aHeader[] = {h.wReserved0,   h.wReserved2 + 0U, h.dwReserved4, h.dwFileSize,
                                h.dwMustBeZero, h.dwEntryCount,    h.dwIndexType};
    tagMRFD e{};
    ASSERT_EQ(BuildQXFEntry(lpBytes, e), 0);
    const CmUint32 aEntry[] = {e.wTag,         e.wReserved2 + 0U, e.dwEntryID,
                               e.dwExtraInfo,  e.dwReserved12,    e.dwDataOffset,
                               e.dwStreamSize, e.dwNextOffset,    e.dwReserved28};
    const auto expectFields = [&](const auto& aFields) {
        EXPECT_EQ(aFields[0], Get16(strBytes, 0));
        EXPECT_EQ(aFields[1], Get16(strBytes, 2));
        for (std::size_t i = 2; i < std::size(aFields); ++i)
            EXPECT_EQ(aFields[i], Get32(strBytes, i * 4 - 4)) << i;
    };
    expectFields(aHeader);
    expectFields(aEntry);
    tagEntryFileHeader c{};
    ASSERT_EQ(BuildEntryFileHeader(lpBytes, c), 0);
    EXPECT_EQ(c.dwFileVersion, Get32(strBytes, 8));
    EXPECT_EQ(c.aReserved12[0], Get32(strBytes, 12));
    EXPECT_EQ(c.dwCBTimeStamp, Get32(strBytes, 52));
    EXPECT_EQ(c.aReserved56[3], Get32(strBytes, 68));
}
