#include "tests/support/FileLink.h"
#include "tests/support/HostTest.h"

namespace {

/// A gathering link over a file link without a file.
struct Buffer {
    explicit Buffer(CmUint32 dwThreshold = 10)
        : pTop(CFileOperationFactory::Instance()->CreateBufferDecorate(
              new FileLink(aScript, nullptr), dwThreshold)) {}
    CmInt32 Append(const CCmString& strData) { return pTop->WriteData(strData, c_dwEnd); }
    std::string Below() { return aScript.Take(); }

    LinkScript aScript;
    CRefPtr<IFileOperation> pTop;
};

}  // namespace

TEST(Buffer, PassesAppendsOnWhenTheThresholdIsReached) {
    Buffer aBuffer;
    EXPECT_EQ(aBuffer.Append("01234"), 0);
    EXPECT_EQ(aBuffer.Append("5678"), 0);
    EXPECT_EQ(aBuffer.Append(""), 0);
    EXPECT_EQ(aBuffer.Below(), "");
    EXPECT_EQ(aBuffer.Append("9"), 0);
    EXPECT_EQ(aBuffer.Below(), "Write 0123456789@end\n");
    EXPECT_EQ(aBuffer.Append("012345678"), 0);
    EXPECT_EQ(aBuffer.Append("more than it"), 0);
    EXPECT_EQ(aBuffer.Below(), "Write <21>@end\n");
    EXPECT_EQ(aBuffer.Append(CCmString(30, 'x')), 0);
    EXPECT_EQ(aBuffer.Below(), "Write <30>@end\n");
    Buffer aUnbuffered(0);
    EXPECT_EQ(aUnbuffered.Append("x"), 0);
    EXPECT_EQ(aUnbuffered.Append(""), 0);
    EXPECT_EQ(aUnbuffered.Below(), "Write x@end\nWrite @end\n");
}

TEST(Buffer, EverythingElseKeepsItsPlaceBehindTheGatheredBytes) {
    Buffer aBuffer;
    unsigned char aBytes[4];
    CmUint32 dwLength = 4;
    EXPECT_EQ(aBuffer.pTop->Open("p", 1), 0);
    EXPECT_EQ(aBuffer.pTop->GetFileName(), "p");
    aBuffer.Append("P1");
    aBuffer.Append("P2");
    EXPECT_EQ(aBuffer.pTop->ReadData(aBytes, 7, dwLength), 0);  // reads don't see what is gathered
    dwLength = 3;
    EXPECT_EQ(aBuffer.pTop->AsyncReadData(tagDataInfo{}, aBytes, 8, dwLength), 0);
    EXPECT_EQ(aBuffer.pTop->WriteData("P3", 0), 0);
    EXPECT_EQ(aBuffer.pTop->WriteData("P4", 1), 0);
    aBuffer.Append("P5");
    aBuffer.pTop->Flush();
    aBuffer.pTop->Flush();
    aBuffer.Append("P6");
    EXPECT_EQ(aBuffer.pTop->Close(), 0);
    EXPECT_EQ(aBuffer.Below(),
              "Open p 1\nRead 4@7\nRead 3@8\n"
              "Write P1P2@end\nWrite P3@0\nWrite P4@1\n"
              "Write P5@end\nFlush\nFlush\n"
              "Write P6@end\nFlush\nClose\n");
    aBuffer.Append("P7");
    aBuffer.pTop = nullptr;  // an end without a close loses nothing
    EXPECT_EQ(aBuffer.Below(), "Write P7@end\nFlush\nClose\n");
    EXPECT_TRUE(aBuffer.aScript.m_bGone);
}

TEST(Buffer, FailuresAreReturnedByTheCallThatCanOrTracedAndCounted) {
    TraceLog aTrace;
    Buffer aBuffer;
    aBuffer.aScript.m_fault = [](const std::string& strCall, int) {
        if (strCall == "Close") return 4006;
        return strCall.find("@end") != std::string::npos ? 4003 : 0;
    };
    LostBytes aLost;
    aBuffer.Append("1234");
    EXPECT_EQ(aBuffer.Append("567890"), 4003);
    EXPECT_EQ(aLost.Take(), 4U) << "the failing call's own bytes are its caller's";
    EXPECT_EQ(aTrace.TakeErrors(), "");
    aBuffer.Append("123");
    EXPECT_EQ(aBuffer.pTop->WriteData("at", 5), 0) << "the positioned write's own result";
    EXPECT_EQ(aLost.Take(), 3U);
    EXPECT_EQ(aTrace.TakeErrors(), "CBufferDecorate::WriteData->Write buffer data error this=*\n");
    aBuffer.Append("12");
    aBuffer.pTop->Flush();
    EXPECT_EQ(aLost.Take(), 2U);
    aBuffer.Append("1");
    EXPECT_EQ(aBuffer.pTop->Close(), 4006) << "what the close below gives";
    EXPECT_EQ(aLost.Take(), 1U);
    EXPECT_EQ(aBuffer.Below(),
              "Write 1234567890@end\nWrite 123@end\nWrite at@5\nWrite 12@end\nFlush\n"
              "Write 1@end\nFlush\nClose\n")
        << "nothing is tried twice";
    EXPECT_EQ(aTrace.TakeErrors(), "");
}

TEST(Buffer, WithoutALinkBelowEverythingIsRefused) {
    TraceLog aTrace;
    const CRefPtr<IFileOperation> pTop =
        CFileOperationFactory::Instance()->CreateBufferDecorate(nullptr, 10);
    EXPECT_EQ(aTrace.TakeErrors(), Assertion("fileop/BufferDecorate.cpp", "pFile"));
    unsigned char aBytes[1];
    CmUint32 dwLength = 1;
    EXPECT_EQ(pTop->Open(".\\a", 1), 4007);
    EXPECT_EQ(pTop->WriteData("x", c_dwEnd), 4007);
    EXPECT_EQ(pTop->WriteData("x", 0), 4007);
    EXPECT_EQ(pTop->ReadData(aBytes, 0, dwLength), 4007);
    EXPECT_EQ(pTop->AsyncReadData(tagDataInfo{}, aBytes, 0, dwLength), 4007);
    EXPECT_EQ(pTop->GetFileName(), "");
    pTop->Flush();
    EXPECT_EQ(pTop->Close(), 4007);
}
