#include "tests/support/Player.h"

using Read = HostModeTest;
INSTANTIATE_BOTH_MODES(Read);

namespace {

/// A read and its expected result.
struct ReadCase {
    CmUint32 dwOffset, dwLength;
    const char* lpBytes;       // the delivered bytes; null if the read is refused
    const char* lpShown = "";  // the absolute offset in the trace line of the refusal
};

}  // namespace

TEST_P(Read, ReturnsAnyRangeOfAContainer) {
    // The header gives 70 bytes, but the file has 66. The stream begins at 60.
    CCmString strBytes(66, '#');
    SetHeader(strBytes, 70, 1, 0);
    SetEntry(strBytes, c_nHeader, {258, 7, 5, 60, 0});
    strBytes.replace(60, 6, "abcdef");
    WriteBytes("c", strBytes);
    Player aPlayer(GetParam(), &m_sink);
    ASSERT_EQ(aPlayer.Open("c"), 0);
    Settle();
    m_sink.Take();
    const ReadCase aCases[] = {{1, 3, "bcd"},
                               {3, 7, "def"},
                               {9, 1, ""},
                               {0, 11, nullptr, "60"},
                               {10, 1, nullptr, "70"},
                               {1, 0xFFFFFFFE, nullptr, "61"},
                               {4, 0xFFFFFFFF, "ef"},
                               {0xFFFFFFFF - 59, 0xFFFFFFFF, nullptr, "4294967296"},
                               {0xFFFFFFFF, 1, nullptr, "4294967355"}};
    for (const ReadCase& aCase : aCases) {
        SCOPED_TRACE(std::to_string(aCase.dwLength) + "@" + std::to_string(aCase.dwOffset));
        EXPECT_EQ(aPlayer.Read(c_aInfo, aCase.dwOffset, aCase.dwLength, 100),
                  aCase.lpBytes ? 0 : 4009);
        Settle();
        const std::string strTold = m_sink.Take();
        if (aCase.lpBytes) {
            EXPECT_EQ(strTold, "Data " + std::to_string(std::string(aCase.lpBytes).size()));
            EXPECT_EQ(m_sink.m_strData, aCase.lpBytes);
            EXPECT_EQ(m_sink.m_dataInfo.dwDataLen, 99U);
            EXPECT_EQ(m_trace.TakeErrors(), "");
        } else {
            EXPECT_EQ(strTold, "");
            EXPECT_EQ(m_trace.TakeErrors(),
                      std::string("CDownloadFileHandler::ReadData->Bad Arg dwOffset=") +
                          aCase.lpShown + " dwLength=" + std::to_string(aCase.dwLength) +
                          " FileSize=70 this=*\n");
        }
    }
}

TEST_P(Read, ReturnsAnyRangeOfARecordFile) {
    const CCmString strFile = Pattern(70'000);
    WriteBytes("kvr2/7/a", strFile);
    Player aPlayer(GetParam(), &m_sink, Player::ForFiles);
    ASSERT_EQ(aPlayer.OpenFile("a", c_aStream), 0);
    Settle();
    m_sink.Take();
    const struct {
        CmUint32 dwOffset, dwLength, dwRead;
    } aCases[] = {{0, 70'000, 70'000}, {1, 32'768, 32'768},     {69'999, 1, 1},
                  {69'990, 100, 10},   {70'000, 1, 0},          {70'001, 1, 0},
                  {0xFFFFFFFF, 9, 0},  {3, 0xFFFFFFFF, 69'997}, {80'000, 0xFFFFFFFF, 0}};
    for (const auto& aCase : aCases) {
        SCOPED_TRACE(std::to_string(aCase.dwLength) + "@" + std::to_string(aCase.dwOffset));
        const CCmString strWanted =
            strFile.substr(std::min<std::size_t>(aCase.dwOffset, 70'000), aCase.dwRead);
        EXPECT_EQ(aPlayer.Read(c_aInfo, aCase.dwOffset, aCase.dwLength, 100'000), 0);
        Settle();
        EXPECT_EQ(m_sink.Take(), "Data " + std::to_string(aCase.dwRead));
        EXPECT_EQ(Difference(m_sink.m_strData, strWanted), "");
        if (aCase.dwLength != 0xFFFFFFFF) {
            EXPECT_EQ(
                Difference(aPlayer.SyncRead(c_aInfo, aCase.dwOffset, aCase.dwLength), strWanted),
                "");
        }
    }
    EXPECT_EQ(m_sink.Take(), "") << "a synchronous read calls nobody";
    EXPECT_EQ(m_trace.TakeErrors(), "");
}
