#include <gtest/gtest.h>

#include <thread>

#include "platform/CmByteStream.h"
#include "tests/support/Events.h"
#include "tests/support/TraceLog.h"

TEST(Trace, TheFormatterTakesEveryTypeAndTruncates) {
    using Formator = CCmT120Trace::Text_Formator;
    char aBuffer[256];
    Formator aText(aBuffer, sizeof aBuffer);
    aText << "text " << CCmString("string ") << -2147483647 - 1 << " " << 4294967295U << " " << -5L
          << " " << 6UL << " " << static_cast<unsigned short>(65535) << " "
          << static_cast<unsigned char>(255) << " "
          << reinterpret_cast<const void*>(std::uintptr_t{0xBEEF});
    EXPECT_STREQ(aText, "text string -2147483648 4294967295 -5 6 65535 255 0xbeef");
    for (std::size_t dwSize = 1; dwSize <= 8; ++dwSize) {
        char aSmall[10] = "#########";
        Formator(aSmall, dwSize) << "ab" << 1234 << CCmString("c");
        EXPECT_EQ(aSmall, std::string("ab1234c").substr(0, dwSize - 1));
        EXPECT_EQ(aSmall[dwSize], '#') << "nothing behind the buffer is touched";
    }
}

/// Counts how often it is formatted.
struct CountedPart {
    int& nFormatted;
};

CCmT120Trace::Text_Formator& operator<<(CCmT120Trace::Text_Formator& aText,
                                        const CountedPart& aPart) {
    return aText << ++aPart.nFormatted;
}

TEST(Trace, ALineIsFormattedOnlyForASinkThatWantsItsLevel) {
    int nFormatted = 0;
    const CountedPart aPart{nFormatted};
    TraceError(aPart);
    {
        TraceLog aLog(CCmT120Trace::Level_Error);
        TraceInfo(aPart);
        EXPECT_EQ(nFormatted, 0);
        TraceError("error ", aPart);
        TraceError(CCmString(2000, 'y'));
        EXPECT_EQ(aLog.TakeErrors(), "error 1\n" + std::string(1023, 'y') + "\n");
        EXPECT_EQ(aLog.TakeInfos(), "");
    }
    TraceError(aPart);
    EXPECT_EQ(nFormatted, 1);
}

TEST(Trace, ASinkMayReplaceItselfFromInside) {
    std::string strLines;
    const auto pHeld = std::make_shared<int>(1);
    CCmT120Trace::instance()->SetSink([&strLines, pHeld](CmInt32, const char* lpText) {
        CCmT120Trace::instance()->SetSink(
            [&strLines](CmInt32, const char* lpLater) { strLines += CCmString("2:") + lpLater; });
        EXPECT_EQ(pHeld.use_count(), 2) << "a running call keeps what it uses";
        strLines += CCmString("1:") + lpText;
    });
    for (const char* const lpText : {"a ", "b "}) TraceError(lpText);
    EXPECT_EQ(pHeld.use_count(), 1);
    CCmT120Trace::instance()->SetSink({});
    EXPECT_EQ(strLines, "1:a 2:b ");
}

TEST(ByteStream, FieldsAreLittleEndianAndTheFirstFailureSticks) {
    TraceLog aTrace;
    const unsigned char aBytes[] = {0x34, 0x12, 0xEF, 0xBE, 0xAD, 0xDE, 0xFF, 0xFF, 0x7F, 0};
    CCmMessageBlock aBlock(sizeof aBytes, aBytes, 1, 9);
    CCmByteStreamT<CCmMessageBlock> aStream(aBlock);
    std::uint16_t w = 0;
    CmUint32 dw = 0;
    aStream >> w >> dw;
    EXPECT_EQ(aStream.m_ResultRead, 0);
    aStream >> dw;  // only three bytes are left
    EXPECT_EQ(aStream.m_ResultRead, 4006);
    EXPECT_EQ(aTrace.TakeErrors(), "");
    aStream >> w;  // fits, but the stream has already failed
    EXPECT_EQ(aTrace.TakeErrors(), "CCmByteStreamT::Read, can't read. m_ResultRead=4006 this=*\n");
    EXPECT_EQ(w, 0x1234);
    EXPECT_EQ(dw, 0xDEADBEEF);
    unsigned char aRest[4] = {};
    EXPECT_EQ(aBlock.Read(aRest, 3), 0) << "a failed read takes nothing";
    EXPECT_EQ(aRest[2], 0x7F);
}
