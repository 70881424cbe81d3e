#include "fileop/FileOperation.h"
#include "tests/support/HostTest.h"

using LocalFile = HostTest;

namespace {

CRefPtr<IFileOperation> NewFile(int bIsDownloadFile = 0) {
    return CFileOperationFactory::Instance()->CreateLocalFile(bIsDownloadFile);
}

/// Reads dwLength bytes at dwOffset and returns the bytes, or "error CODE".
CCmString Read(IFileOperation& aFile, CmUint32 dwOffset, CmUint32 dwLength) {
    CCmString strBytes(dwLength, '\0');
    auto* const lpBuffer = reinterpret_cast<unsigned char*>(strBytes.data());
    const CmInt32 lResult = aFile.ReadData(lpBuffer, dwOffset, dwLength);
    return lResult == 0 ? strBytes.substr(0, dwLength) : "error " + std::to_string(lResult);
}

}  // namespace

TEST_F(LocalFile, WritesAndReadsMayAlternateAtAnyPlace) {
    const auto pFile = NewFile();
    ASSERT_EQ(pFile->Open(".\\d\\e\\a", 1), 0);
    EXPECT_EQ(pFile->WriteData("0123456789", c_dwEnd), 0);
    EXPECT_EQ(Read(*pFile, 6, 100), "6789");
    EXPECT_EQ(pFile->WriteData(CCmString("\0B", 2), 1), 0);
    EXPECT_EQ(pFile->WriteData("end", c_dwEnd), 0);  // after the last byte, not after the B
    EXPECT_EQ(pFile->WriteData("", 500), 0);
    ExpectFile(".\\d\\e\\a", CCmString("0\0B3456789end", 13));  // nothing is buffered
    EXPECT_EQ(pFile->WriteData("gap", 16), 0);
    EXPECT_EQ(Read(*pFile, 10, 6), CCmString("end\0\0\0", 6));
    EXPECT_EQ(Read(*pFile, 19, 1), "");
    EXPECT_EQ(Read(*pFile, 0xFFFFFFFF, 1), "");
    EXPECT_EQ(pFile->WriteData("far", 0x80000000), 4006);
    EXPECT_EQ(m_trace.TakeErrors(),
              "CLocalFile::WriteData->Seek fileoffset error=22 dwOffset=2147483648 this=*\n");
    for (int i = 0; i < 2; ++i) EXPECT_EQ(pFile->Close(), 0);
    EXPECT_EQ(m_trace.TakeInfos(), "CLocalFile::CLocalFile, m_bIsDownloadFile 0 this=*\n");
}

TEST_F(LocalFile, StateAndArgumentsAreCheckedInOrder) {
    const auto pFile = NewFile();
    unsigned char aBuffer[1];
    CmUint32 dwNothing = 0;
    const auto assertion = [](const char* lp) { return Assertion("fileop/LocalFile.cpp", lp); };
    EXPECT_EQ(pFile->Close(), 0);
    EXPECT_EQ(pFile->WriteData("x", 0), 4007);
    EXPECT_EQ(pFile->ReadData(nullptr, 0, dwNothing), 4007);
    WriteBytes("a", Pattern(100));
    ASSERT_EQ(pFile->Open(".\\a", 0), 0);
    EXPECT_EQ(pFile->ReadData(nullptr, 0, dwNothing), 4009);
    EXPECT_EQ(pFile->ReadData(aBuffer, 0, dwNothing), 4009);
    EXPECT_EQ(m_trace.TakeErrors(), assertion("m_hFD") + assertion("m_hFD") +
                                        assertion("lpBuffer") + assertion("dwLength"));
    EXPECT_EQ(Read(*pFile, 60, 100), Pattern(100).substr(60));  // 40 bytes before the end
    EXPECT_EQ(pFile->WriteData("x", c_dwEnd), 4010);
    EXPECT_EQ(m_trace.TakeErrors(), "");
    ExpectFile("a", Pattern(100));
    EXPECT_EQ(NewFile()->Open(".\\a", 1), 0);
    ExpectFile("a", "");
}

TEST_F(LocalFile, AFailedOpenReturnsItsCode) {
    const CCmString strNul(".\\a\0b", 5);
    const std::string strWriting = "CLocalFile::Open->Open write File Error=";
    const std::string strReading = "CLocalFile::Open->Open reading only File Error=";
    const struct {
        CCmString strPath;
        int bWrite;
        int bIsDownloadFile;
        CmInt32 lResult;
        std::string strTrace;
    } aCases[] = {
        {"./no/backslash", 1, 0, 4005, ""},
        {"missing\\d\\a", 1, 0, 4001, "CFilePathBuilder::BuildPath->Build Error=2\n"},
        {"missing\\a", 1, 0, 4001, strWriting + "2 this=*\n"},
        {".\\m\\missing", 0, 0, 4001, strReading + "2 this=*\n"},
        {".\\missing", 0, 1, 4001, strReading + "2 this=*\n"},
        {"", 0, 1, 4006, ""},
        {strNul, 1, 0, 4006, strWriting + "22 this=*\n"},
        {strNul, 0, 0, 4006, strReading + "22 this=*\n"},
    };
    for (const auto& aCase : aCases) {
        SCOPED_TRACE(aCase.strPath + (aCase.bWrite ? " written" : " read"));
        const auto pFile = NewFile(aCase.bIsDownloadFile);
        EXPECT_EQ(pFile->Open(aCase.strPath, aCase.bWrite), aCase.lResult);
        EXPECT_EQ(pFile->GetFileName(), aCase.strPath);
        EXPECT_EQ(m_trace.TakeErrors(), aCase.strTrace);
    }
    EXPECT_TRUE(std::filesystem::is_empty(".")) << "nothing is made on the way to a failure";
}
