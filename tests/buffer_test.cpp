#include "tests/support/FileLink.h"
#include "tests/support/HostTest.h"

namespace {

/// A buffer link that gathers 10 bytes, on top of a scripted link without a file.
struct Buffer : testing::Test {
    CmInt32 Append(const CCmString& strData) { return pTop->WriteData(strData, c_dwEnd); }
    std::string Below() { return aScript.Take(); }

    TraceLog aTrace;
    LostBytes aLost;
    LinkScript aScript;
    CRefPtr<IFileOperation> pTop =
        CFileOperationFactory::Instance()->CreateBufferDecorate(new FileLink(aScript, nullptr), 10);
};

}  // namespace

TEST_F(Buffer, PassesAppendsOnWhenTheThresholdIsReached) {
    for (const char* const lpPiece : {"01234", "5678", ""}) EXPECT_EQ(Append(lpPiece), 0);
    EXPECT_EQ(Below(), "");
    for (const char* const lpPiece : {"9", "012345678", "more than it"}) Append(lpPiece);
    EXPECT_EQ(Below(), "Write 0123456789@end\nWrite <21>@end\n");
}

TEST_F(Buffer, OtherCallsFollowTheGatheredBytesInOrder) {
    unsigned char aBytes[4];
    CmUint32 dwLength = 4;
    EXPECT_EQ(pTop->Open("p", 1), 0);
    EXPECT_EQ(pTop->GetFileName(), "p");
    Append("P1");
    Append("P2");
    EXPECT_EQ(pTop->ReadData(aBytes, 7, dwLength), 0);  // does not return gathered bytes
    EXPECT_EQ(pTop->WriteData("P3", 0), 0);
    EXPECT_EQ(pTop->WriteData("P4", 1), 0);
    Append("P5");
    pTop->Flush();
    pTop->Flush();
    Append("P6");
    EXPECT_EQ(pTop->Close(), 0);
    EXPECT_EQ(Below(),
              "Open p 1\nRead 4@7\nWrite P1P2@end\nWrite P3@0\nWrite P4@1\n"
              "Write P5@end\nFlush\nFlush\nWrite P6@end\nFlush\nClose\n");
    Append("P7");
    pTop = nullptr;  // destroying it without a close loses nothing
    EXPECT_EQ(Below(), "Write P7@end\nFlush\nClose\n");
}

TEST_F(Buffer, AFailedAppendIsReturnedOrCountedAsLost) {
    aScript.aFault = [](const std::string& strCall) {
        return strCall == "Close" ? 4006 : strCall.find("@end") != strCall.npos ? 4003 : 0;
    };
    Append("1234");
    EXPECT_EQ(Append("567890"), 4003);
    EXPECT_EQ(aLost.Take(), 4U) << "the failing call's own bytes are its caller's";
    EXPECT_EQ(aTrace.TakeErrors(), "");
    Append("123");
    EXPECT_EQ(pTop->WriteData("at", 5), 0) << "the positioned write's own result";
    EXPECT_EQ(aLost.Take(), 3U);
    EXPECT_EQ(aTrace.TakeErrors(), "CBufferDecorate::WriteData->Write buffer data error this=*\n");
    Append("12");
    pTop->Flush();
    EXPECT_EQ(aLost.Take(), 2U);
    Append("1");
    EXPECT_EQ(pTop->Close(), 4006) << "what the close below gives";
    EXPECT_EQ(aLost.Take(), 1U);
    EXPECT_EQ(aTrace.TakeErrors(), "");
    EXPECT_EQ(Below(),
              "Write 1234567890@end\nWrite 123@end\nWrite at@5\nWrite 12@end\nFlush\n"
              "Write 1@end\nFlush\nClose\n")
        << "nothing is tried twice";
}
