#include "tests/support/Player.h"

class RoundTrip : public HostModeTest {
 protected:
    /// Opens the container strPath, reads every stream in runs of odd sizes, and expects these
    /// streams in this order.
    void ExpectStreams(const CCmString& strPath, const std::vector<HandStream>& vecStreams) {
        Player aPlayer(GetParam(), &m_sink);
        ASSERT_EQ(aPlayer.Open(strPath), 0);
        std::vector<tagFileDescriber> vecWanted;
        CCmString strConf(c_nConfHeader, '\0');
        for (const HandStream& aStream : vecStreams) {
            vecWanted.push_back(aStream.Describer());
            if (aStream.wTag == c_wConf) strConf = aStream.strBytes;
        }
        ASSERT_EQ(aPlayer.m_vecStreams, vecWanted);
        EXPECT_EQ(aPlayer->GetFileVersion(), Get32(strConf, 8));
        EXPECT_EQ(aPlayer->GetCBTimeStamp(), Get32(strConf, 52));
        for (const HandStream& aStream : vecStreams) {
            const auto nSize = static_cast<unsigned>(aStream.strBytes.size());
            CCmString strGot;
            for (unsigned nAt = 0, nRun = 0; nAt < nSize; nAt += nRun) {
                nRun = std::min(nSize - nAt, 1 + m_random.Below(nSize / 5 + 3));
                ASSERT_EQ(aPlayer.Read(InfoOf(aStream.Describer()), nAt, nRun), 0);
                Settle();
                strGot += m_sink.m_strData;
            }
            ASSERT_EQ(Difference(strGot, aStream.strBytes), "") << aStream.Describer();
        }
        EXPECT_EQ(m_trace.TakeErrors(), "");
    }

    /// A stream of each tag, or of nearly each, with any number and any bytes.
    std::vector<HandStream> RandomStreams() {
        std::vector<HandStream> vecStreams;
        for (const TagRow& aRow : c_aTagRows) {
            if (m_random.Below(10) == 0) continue;
            const unsigned nLength = m_random.Below(m_random.Below(8) ? 2000 : 100'000);
            CCmString strBytes = m_random.Bytes(m_random.Below(4) ? nLength : 0);
            if (aRow.wTag == c_wConf)
                strBytes = ConfBytes(nLength, 0xFEDC, c_nConfHeader + nLength);
            vecStreams.push_back({aRow.wTag, m_random.Below(0xFFFFFFFF), m_random.Below(0xFFFFFFFF),
                                  std::move(strBytes)});
        }
        return vecStreams;
    }

    /// Adds the stream in one of the four ways.
    CmInt32 AddTo(CContainerWriter& aWriter, const HandStream& aStream) {
        const unsigned char* const lpData = BytesOf(aStream.strBytes);
        const auto dwLength = static_cast<CmUint32>(aStream.strBytes.size());
        const auto wTag = static_cast<std::uint16_t>(aStream.wTag);
        const CCmString strFile = ".\\source" + std::to_string(m_nFiles++);
        WriteBytes(strFile, aStream.strBytes);
        switch (m_random.Below(4)) {
            case 0:
                return aWriter.AddStream(aStream.Describer(), lpData, dwLength);
            case 1:
                return aWriter.AddStreamFile(aStream.Describer(), strFile);
            case 2:
                return aWriter.AddTagStream(wTag, aStream.dwEntryID, aStream.dwExtraInfo, lpData,
                                            dwLength);
            default:
                return aWriter.AddTagStreamFile(wTag, aStream.dwEntryID, aStream.dwExtraInfo,
                                                strFile);
        }
    }

    SeededRandom m_random;
    int m_nFiles = 0;
};
INSTANTIATE_BOTH_MODES(RoundTrip);

TEST_P(RoundTrip, WhatIsWrittenIsReadBack) {
    for (unsigned nRound = 0; nRound < 12; ++nRound) {
        SCOPED_TRACE(nRound);
        std::vector<HandStream> vecStreams = RandomStreams();
        CContainerWriter aWriter;
        ASSERT_EQ(aWriter.SetIndexType(nRound % 2), 0);
        for (const HandStream& aStream : vecStreams) ASSERT_EQ(AddTo(aWriter, aStream), 0);
        if (nRound % 3 == 0) {  // sets two fields of the conf stream, which is added if missing
            aWriter.SetFileHeader(nRound + 1, 0xFEDCBA98);
            const auto isConf = [](const HandStream& a) { return a.wTag == c_wConf; };
            auto it = std::find_if(vecStreams.begin(), vecStreams.end(), isConf);
            if (it == vecStreams.end())
                it = vecStreams.insert(it, {c_wConf, 0, 0, CCmString(c_nConfHeader, '\0')});
            Set32(it->strBytes, 8, nRound + 1);
            Set32(it->strBytes, 52, 0xFEDCBA98);
        }
        ASSERT_EQ(aWriter.Write(".\\c"), 0);
        EXPECT_FALSE(Exists(".\\c.partial"));
        ASSERT_NO_FATAL_FAILURE(ExpectStreams(".\\c", vecStreams));
    }
}

TEST_P(RoundTrip, AWrittenContainerHasTheDocumentedWordsAndAUtf8Name) {
    const CCmString strPath = "gr\xC3\xBC\xC3\x9F \xE6\x97\xA5\xE6\x9C\xAC.bin";
    CContainerWriter aWriter;
    EXPECT_EQ(aWriter.SetIndexType(1), 0);
    const unsigned char aBytes[] = {1, 2, 3};
    EXPECT_EQ(aWriter.AddTagStream(284, 5, 6, nullptr, 0), 0);
    EXPECT_EQ(aWriter.AddStream({8, 2, 7008, 9}, aBytes, 3), 0);
    EXPECT_EQ(aWriter.Write(strPath), 0);
    CCmString strWanted(c_nHeader + 2 * c_nEntry, '\0');
    const std::pair<unsigned, CmUint32> aWords[] = {{8, 91}, {16, 2},  {20, 1},  {24, 284}, {28, 5},
                                                    {32, 6}, {40, 91}, {48, 56}, {56, 258}, {60, 7},
                                                    {64, 9}, {72, 88}, {76, 3}};
    for (const auto& [nAt, dwValue] : aWords) Set32(strWanted, nAt, dwValue);
    ExpectStreams(strPath, {{284, 5, 6, ""}, {258, 7, 9, "\1\2\3"}});
    std::filesystem::rename(std::filesystem::u8path(strPath), "c");
    ExpectFile("c", strWanted + "\1\2\3");
}
