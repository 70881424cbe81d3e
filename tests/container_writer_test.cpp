#include <fstream>
#include <stdexcept>

#include "tests/support/Player.h"

/// A host that packs containers in a new directory.
class Writer : public HostTest {
 protected:
    CmInt32 Add(const tagFileDescriber& aDescriber, const CCmString& strBytes) {
        return AddStream(m_writer, aDescriber, strBytes);
    }

    /// Expects that writing to .\c gives this code, traces these lines, and leaves no new file.
    void ExpectRefused(CmInt32 lResult, const std::string& strLines) {
        const CCmString strBefore = ReadBytes("c");
        EXPECT_EQ(m_writer.Write(".\\c"), lResult);
        EXPECT_EQ(m_trace.TakeErrors(), strLines);
        ExpectFile("c", strBefore);
        EXPECT_FALSE(Exists("c.partial"));
    }

    std::string Streams(const CCmString& strPath) {
        Player aPlayer(Sync, nullptr);
        EXPECT_EQ(aPlayer.Open(strPath), 0);
        return testing::PrintToString(aPlayer.m_vecStreams);
    }

    CContainerWriter m_writer;
};

TEST_F(Writer, RefusesWhatTheFormatCannotHold) {
    const std::pair<tagFileDescriber, bool> aCases[] = {
        {{8, 2, 8, 0}, true},      {{8, 2, 9, 0}, false},         {{8, 2, 1008, 0}, true},
        {{8, 4, 2008, 0}, false},  {{8, 3, 2008, 0}, false},      {{2, 2, 2002, 0}, false},
        {{99, 5, 1099, 0}, false}, {{99, 1, 1099, 0}, true},      {{99, 4, 1099, 0}, true},
        {{100, 2, 101, 0}, false}, {{102, 2, 102, 0}, true},      {{102, 2, 1102, 0}, false},
        {{102, 1, 102, 0}, false}, {{3, 2, 4294967291, 0}, true}, {{3, 2, 4294967292, 0}, false}};
    std::vector<tagFileDescriber> vecGood;
    for (const auto& [a, bGood] : aCases) {
        SCOPED_TRACE(testing::PrintToString(a));
        const std::string strNamed = " FileID=" + std::to_string(a.dwFileID) +
                                     " DataType=" + std::to_string(a.wDataType) +
                                     " FileType=" + std::to_string(a.byFileType) + " this=*\n";
        EXPECT_EQ(Add(a, "x"), bGood ? 0 : 4009);
        EXPECT_EQ(m_writer.AddStreamFile(a, ".\\any"), 4009) << "added already, or without a tag";
        const std::string strTwice = "CContainerWriter::AddStream->Stream added twice" + strNamed;
        const std::string strNoTag = "CContainerWriter::AddStream->No tag for" + strNamed;
        EXPECT_EQ(m_trace.TakeErrors(), bGood ? strTwice : strNoTag + strNoTag);
        if (bGood) vecGood.push_back(a);
    }
    const unsigned char aByte[] = {1};
    for (const unsigned wTag : {0U, 255U, 262U, 275U, 288U, 65535U}) {
        EXPECT_EQ(m_writer.AddTagStream(static_cast<std::uint16_t>(wTag), 1, 0, aByte, 1), 4009);
        EXPECT_EQ(m_trace.TakeErrors(),
                  "CContainerWriter::AddStream->Unknown tag=" + std::to_string(wTag) + " this=*\n");
    }
    EXPECT_EQ(m_writer.AddTagStream(258, 1 + 0x20000000, 0, aByte, 1), 4009) << "the id 1008 again";
    EXPECT_EQ(m_writer.AddTagStream(284, 77, 0, aByte, 1), 4009) << "the id 102 again";
    EXPECT_EQ(m_writer.AddTagStream(256, 1, 0, nullptr, 1), 4009);
    EXPECT_EQ(m_writer.AddTagStreamFile(256, 1, 0, ""), 4009);
    EXPECT_EQ(m_writer.SetIndexType(2), 4009);
    m_trace.TakeErrors();

    EXPECT_EQ(m_writer.Write(".\\c"), 0);
    EXPECT_EQ(Streams("c"), testing::PrintToString(vecGood));
    EXPECT_EQ(Get32(ReadBytes("c"), 20), 0U) << "a refused index type changes nothing";
}

TEST_F(Writer, VersionAndTimeStampAreWrittenIntoTheConfStream) {
    ExpectRefused(4010, "CContainerWriter::Write->No stream this=*\n");
    EXPECT_EQ(Add({100, 2, 100, 0}, CCmString(71, 'x')), 4009);
    EXPECT_EQ(m_trace.TakeErrors(),
              "CContainerWriter::AddStream->Conf stream without header FileID=100 DataType=100 "
              "FileType=2 this=*\n");
    const auto expectConf = [&](const CCmString& strConf) {
        EXPECT_EQ(m_writer.Write(".\\c"), 0);
        const CCmString strFile = ReadBytes("c");
        EXPECT_EQ(Difference(strFile.substr(strFile.size() - strConf.size()), strConf), "");
        Player aPlayer(Sync, nullptr);
        EXPECT_EQ(aPlayer.Open("c"), 0);
        EXPECT_EQ(aPlayer->GetFileVersion(), Get32(strConf, 8));
        EXPECT_EQ(aPlayer->GetCBTimeStamp(), Get32(strConf, 52));
    };
    EXPECT_EQ(Add({8, 2, 8, 0}, "data"), 0);
    m_writer.SetFileHeader(5, 6);
    CCmString strMade(c_nConfHeader, '\0');
    Set32(strMade, 8, 5);
    Set32(strMade, 52, 6);
    expectConf(strMade);
    EXPECT_EQ(Streams("c"), testing::PrintToString(
                                std::vector<tagFileDescriber>{{8, 2, 8, 0}, {100, 2, 100, 0}}));
    // The conf stream that was added to that container is not added to the writer.
    EXPECT_EQ(Add({100, 2, 100, 3}, ConfBytes(1, 2, 100'000)), 0);
    expectConf(ConfBytes(5, 6, 100'000));
    EXPECT_EQ(Add({1, 2, 1, 0}, ""), 0);
    m_writer.SetFileHeader(7, 0);
    expectConf(ConfBytes(7, 0, 100'000));
    EXPECT_EQ(m_trace.TakeErrors(), "");
}

TEST_F(Writer, ABadSourceLeavesAnEarlierContainerUnchanged) {
    EXPECT_EQ(Add({8, 2, 8, 0}, "data"), 0);
    EXPECT_EQ(m_writer.AddTagStreamFile(256, 1, 0, ".\\source"), 0);
    const std::string strMissing =
        "CContainerWriter::Write->Open source error=2 file=.\\source this=*\n";
    ExpectRefused(4001, strMissing);
    WriteBytes("c", "an earlier container");
    ExpectRefused(4001, strMissing);
    WriteBytes("source", "");
    EXPECT_EQ(m_writer.Write(".\\c"), 0);
    EXPECT_EQ(ReadBytes("c").size(), c_nHeader + 2 * c_nEntry + 4);
    std::filesystem::remove("source");
    ExpectRefused(4001, strMissing);

    EXPECT_EQ(m_writer.AddTagStreamFile(274, 0, 0, ".\\conf"), 0);
    WriteBytes("source", "s");
    WriteBytes("conf", CCmString(71, 'x'));
    ExpectRefused(4009,
                  "CContainerWriter::Write->Conf stream without header file=.\\conf this=*\n");
    WriteBytes("conf", CCmString(72, 'x'));
    EXPECT_EQ(m_writer.Write(".\\c"), 0);
}

TEST_F(Writer, AContainerOfFourGigabytesIsRefused) {
    const auto makeFile = [](const char* lpName, std::uint64_t qwSize) {
        std::ofstream aFile(lpName, std::ios::binary);
        aFile.seekp(static_cast<std::streamoff>(qwSize - 1)).put('x');  // the rest is a hole
    };
    const std::string strRefusal = "CContainerWriter::Write->More than 4 GiB file=";
    EXPECT_EQ(m_writer.AddTagStreamFile(256, 1, 0, ".\\one"), 0);
    for (const std::uint64_t qwTooLong :
         {0xFFFFFFFF - 56 + 1ULL, 0x100000000ULL, 0x123456789AULL}) {
        makeFile("one", qwTooLong);
        ExpectRefused(4009, strRefusal + ".\\one this=*\n");
    }
    EXPECT_EQ(m_writer.AddTagStreamFile(256, 2, 0, ".\\two"), 0);
    makeFile("one", 0x80000000);
    makeFile("two", 0x80000000 - 88);
    ExpectRefused(4009, strRefusal + ".\\two this=*\n");
}

TEST_F(Writer, AFailedOutputIsTracedAndLeavesOtherFilesUnchanged) {
    EXPECT_EQ(Add({8, 2, 8, 0}, "data"), 0);
    EXPECT_EQ(m_writer.Write("missing\\c"), 4001);
    EXPECT_EQ(m_trace.TakeErrors(),
              "CContainerWriter::Write->Open file error=2 file=missing\\c.partial this=*\n");
    EXPECT_FALSE(Exists("missing"));
    EXPECT_EQ(m_writer.Write(""), 4006);
    std::filesystem::create_directories("d/inside");
    EXPECT_NE(m_writer.Write(".\\d"), 0);
    EXPECT_TRUE(Exists("d/inside"));
    EXPECT_FALSE(Exists("d.partial"));
    // An existing file with the name of the partial file belongs to another program and stays.
    std::filesystem::create_directory("c.partial");
    WriteBytes("c.partial2", "another's");
    EXPECT_EQ(m_writer.Write(".\\c"), 0);
    EXPECT_EQ(Streams("c"), testing::PrintToString(std::vector<tagFileDescriber>{{8, 2, 8, 0}}));
    EXPECT_TRUE(Exists("c.partial"));
    ExpectFile("c.partial2", "another's");
    EXPECT_FALSE(Exists("c.partial3"));
}

TEST_F(Writer, TheProgressCallbackSeesAllBytesAndCanCancel) {
    WriteBytes("source", CCmString(150'000, 's'));
    WriteBytes("c", "an earlier container");
    EXPECT_EQ(Add({8, 2, 8, 0}, "data"), 0);
    EXPECT_EQ(m_writer.AddTagStreamFile(256, 1, 0, ".\\source"), 0);
    for (const bool bThrow : {false, true}) {
        std::string strSeen;
        const auto writeUpTo = [&](int nCalls) {
            strSeen.clear();
            return m_writer.Write(".\\c", [&](std::uint64_t qwDone, std::uint64_t qwTotal) {
                strSeen += std::to_string(qwDone) + "/" + std::to_string(qwTotal) + " ";
                if (nCalls-- == 0 && bThrow) throw std::runtime_error("host");
                return nCalls >= 0;
            });
        };
        for (int nCalls = 0; nCalls < 10; ++nCalls) {
            SCOPED_TRACE(nCalls);
            if (bThrow)
                EXPECT_THROW(writeUpTo(nCalls), std::runtime_error);
            else
                EXPECT_EQ(writeUpTo(nCalls), 4010);
            EXPECT_STREQ(m_writer.GetLastFailure().lpReason, bThrow ? "" : "packing was cancelled");
            ExpectFile("c", "an earlier container");
            EXPECT_FALSE(Exists("c.partial"));
        }
        EXPECT_EQ(strSeen,
                  "0/0 0/0 0/150004 4/150004 4/150004 65540/150004 131076/150004 "
                  "150004/150004 150004/150004 150004/150004 ");
    }
    EXPECT_EQ(m_trace.TakeErrors(), "");
    EXPECT_EQ(m_writer.Write(".\\c", [](std::uint64_t, std::uint64_t) { return true; }), 0);
    EXPECT_EQ(ReadBytes("c").size(), c_nHeader + 2 * c_nEntry + 150'004);
    const auto grow = [](std::uint64_t, std::uint64_t) {
        std::ofstream("source", std::ios::app) << 'x';
        return true;
    };
    EXPECT_NE(m_writer.Write(".\\c", grow), 0) << "the source grows while it is copied";

    CContainerWriter aPart;
    EXPECT_EQ(aPart.AddStreamFile({100, 2, 100, 0}, ".\\source", 71), 4009);
    EXPECT_EQ(aPart.AddStreamFile({4, 4, 7004, 0}, ".\\source", 140'000), 0);
    EXPECT_EQ(aPart.Write(".\\c", grow), 0);
    EXPECT_EQ(ReadBytes("c").substr(c_nHeader + c_nEntry), ReadBytes("source").substr(0, 140'000));
    std::filesystem::resize_file("source", 139'999);
    EXPECT_EQ(aPart.Write(".\\c"), 4006);
    EXPECT_STREQ(aPart.GetLastFailure().lpReason, "it has become shorter while it was packed");
}
