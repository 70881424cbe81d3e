#include <gtest/gtest.h>

#include <thread>

#include "platform/CmByteStream.h"
#include "platform/CmReference.h"
#include "platform/CmTrace.h"
#include "tests/support/Events.h"
#include "tests/support/TraceLog.h"

using Formator = CCmT120Trace::Text_Formator;

TEST(Trace, TheFormatorTakesEveryTypeAndCutsWhatDoesntFit) {
    char aBuffer[256];
    Formator aText(aBuffer, sizeof aBuffer);
    EXPECT_STREQ(aText, "");
    aText << "text " << CCmString("string ") << -2147483647 - 1 << " " << 4294967295U << " " << -5L
          << " " << 6UL << " " << static_cast<unsigned short>(65535) << " "
          << static_cast<unsigned char>(255) << " "
          << reinterpret_cast<const void*>(std::uintptr_t{0xBEEF});
    EXPECT_STREQ(aText, "text string -2147483648 4294967295 -5 6 65535 255 0xbeef");
    const CCmString strWhole = "ab1234c";
    for (std::size_t dwSize = 1; dwSize <= 8; ++dwSize) {
        char aSmall[10] = "#########";
        Formator aCut(aSmall, dwSize);
        aCut << "ab" << 1234 << CCmString("c");
        EXPECT_EQ(aSmall, strWhole.substr(0, dwSize - 1));
        EXPECT_EQ(aSmall[dwSize], '#') << "nothing behind the buffer is touched";
    }
}

TEST(Trace, ALineIsFormattedOnlyForASinkThatWantsItsLevel) {
    int nFormatted = 0;
    const auto part = [&] {
        ++nFormatted;
        return "x";
    };
    CM_TRACE_ERROR(part());
    {
        TraceLog aLog(CCmT120Trace::Level_Error);
        CM_TRACE_INFO(part());
        EXPECT_EQ(nFormatted, 0);
        CM_TRACE_ERROR("error " << part());
        EXPECT_EQ(nFormatted, 1);
        CM_TRACE_ERROR(CCmString(2000, 'y'));
        EXPECT_EQ(aLog.TakeErrors(), "error x\n" + std::string(1023, 'y') + "\n");
        EXPECT_EQ(aLog.TakeInfos(), "");
    }
    CM_TRACE_ERROR(part());
    EXPECT_EQ(nFormatted, 1);
}

TEST(Trace, SettingASinkWaitsForTheCallsOfTheEarlierOne) {
    for (int i = 0; i < 100; ++i) {
        Signal aInside;
        Signal aGoOn;
        bool bEnded = false;  // without a lock: that is what the waiting is for
        CCmT120Trace::instance()->SetSink([&](CmInt32, const char*) {
            aInside.Raise();
            aGoOn.Wait();
            bEnded = true;
        });
        std::thread aTracer([] { CM_TRACE_ERROR("line"); });
        aInside.Wait();
        aGoOn.Raise();
        CCmT120Trace::instance()->SetSink({});
        EXPECT_TRUE(bEnded);
        aTracer.join();
    }
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
    CM_TRACE_ERROR("a ");
    EXPECT_EQ(pHeld.use_count(), 1);
    CM_TRACE_ERROR("b ");
    CCmT120Trace::instance()->SetSink({});
    CM_TRACE_ERROR("c ");
    EXPECT_EQ(strLines, "1:a 2:b ");
}

namespace {

class Counted final : public CCmReferenceControlT<CCmMutexThread> {
 public:
    explicit Counted(std::string& strEnded) : m_strEnded(strEnded) {}
    ~Counted() override { m_strEnded += "ended "; }

 private:
    std::string& m_strEnded;
};

}  // namespace

TEST(Reference, APointerHoldsOneReferenceWhateverIsDoneWithIt) {
    std::string strEnded;
    auto* const pFirst = new Counted(strEnded);
    auto* const pSecond = new Counted(strEnded);
    EXPECT_EQ(pFirst->GetReference(), 0U);
    CRefPtr<Counted> a(pFirst);
    CRefPtr<Counted> b(a);
    EXPECT_EQ(pFirst->GetReference(), 2U);
    CRefPtr<Counted> c(std::move(b));
    EXPECT_FALSE(b);
    EXPECT_EQ(pFirst->GetReference(), 2U);
    CRefPtr<Counted>& rSame = c;
    c = rSame;
    c = std::move(rSame);
    c = pFirst;
    EXPECT_EQ(pFirst->GetReference(), 2U);
    b = pSecond;
    a = b;
    EXPECT_EQ(pFirst->GetReference(), 1U);
    c = std::move(a);
    EXPECT_EQ(strEnded, "ended ") << "the first one";
    EXPECT_EQ(pSecond->GetReference(), 2U);
    EXPECT_EQ(pSecond->AddReference(), 3U);
    EXPECT_EQ(pSecond->ReleaseReference(), 2U);
    b = nullptr;
    c = CRefPtr<Counted>();
    EXPECT_EQ(strEnded, "ended ended ");
}

TEST(Reference, ReferencesMayBeTakenAndDroppedOnAnyThread) {
    std::string strEnded;
    CRefPtr<Counted> pShared(new Counted(strEnded));
    std::thread aThreads[3];
    for (std::thread& aThread : aThreads)
        aThread = std::thread([pShared] {
            for (int i = 0; i < 10'000; ++i) CRefPtr<Counted> pCopy(pShared);
        });
    pShared = nullptr;
    for (std::thread& aThread : aThreads) aThread.join();
    for (std::thread& aThread : aThreads) aThread = {};
    EXPECT_EQ(strEnded, "ended ");
}

TEST(ByteStream, FieldsAreLittleEndianAndTheFirstFailureSticks) {
    TraceLog aTrace;
    const unsigned char aBytes[] = {0x34, 0x12, 0xEF, 0xBE, 0xAD, 0xDE, 0xFF, 0xFF, 0x7F};
    CCmMessageBlock aBlock(sizeof aBytes, aBytes, 1, sizeof aBytes);
    CCmByteStreamT<CCmMessageBlock> aStream(aBlock);
    std::uint16_t w = 0;
    CmUint32 dw = 0;
    aStream >> w >> dw;
    EXPECT_EQ(w, 0x1234);
    EXPECT_EQ(dw, 0xDEADBEEF);
    EXPECT_EQ(aStream.m_ResultRead, 0);
    aStream >> dw;  // three bytes are left
    EXPECT_EQ(aStream.m_ResultRead, 4006);
    EXPECT_EQ(aTrace.TakeErrors(), "");
    aStream >> w;  // would fit, but the stream has failed
    EXPECT_EQ(aTrace.TakeErrors(), "CCmByteStreamT::Read, can't read. m_ResultRead=4006 this=*\n");
    EXPECT_EQ(w, 0x1234);
    EXPECT_EQ(dw, 0xDEADBEEF);
    EXPECT_EQ(aStream.m_ResultWrite, 0);
    unsigned char aRest[4] = {};
    EXPECT_EQ(aBlock.Read(aRest, 4), 4006);
    EXPECT_EQ(aBlock.Read(aRest, 3), 0) << "a failed read takes nothing";
    EXPECT_EQ(aRest[2], 0x7F);
    EXPECT_EQ(aBlock.Read(aRest, 0), 0);
    CCmMessageBlock aHalf(sizeof aBytes, aBytes, 1, 2);
    EXPECT_EQ(aHalf.Read(aRest, 3), 4006);
    EXPECT_EQ(aHalf.Read(aRest, 2), 0);
}
