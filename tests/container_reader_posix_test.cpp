#include <algorithm>
#include <cstdio>
#include <sstream>

#include "tests/support/Player.h"

namespace {

/// What a command prints.
std::string Output(const std::string& strCommand) {
    std::string strOutput;
    std::FILE* const pPipe = ::popen(strCommand.c_str(), "r");
    if (!pPipe) return strOutput;
    for (int nByte; (nByte = std::fgetc(pPipe)) != EOF;) strOutput += static_cast<char>(nByte);
    EXPECT_EQ(::pclose(pPipe), 0) << strCommand;
    return strOutput;
}

CmUint32 Crc32(const CCmString& strBytes) {
    CmUint32 dwCrc = 0xFFFFFFFF;
    for (const char cByte : strBytes) {
        dwCrc ^= static_cast<unsigned char>(cByte);
        for (int nBit = 0; nBit < 8; ++nBit) dwCrc = dwCrc >> 1 ^ (dwCrc & 1 ? 0xEDB88320 : 0);
    }
    return ~dwCrc;
}

const std::string c_strScript = "python3 " TESTS_DIR "/container_reader.py ";

}  // namespace

class SecondReader : public HostModeTest {
 protected:
    /// Expects that the library finds in the container what the script finds.
    void ExpectAgreement(const CCmString& strPath) {
        std::istringstream aLines(Output(c_strScript + strPath));
        CmInt32 lCode = -1;
        CmUint32 dwVersion = 0, dwTimeStamp = 0;
        ASSERT_TRUE(aLines >> lCode >> dwVersion >> dwTimeStamp);
        Collector aCollector;
        Player aPlayer(GetParam(), &aCollector);
        EXPECT_EQ(aPlayer.Open(strPath), lCode);
        EXPECT_EQ(aPlayer->GetFileVersion(), dwVersion);
        EXPECT_EQ(aPlayer->GetCBTimeStamp(), dwTimeStamp);
        std::size_t nStream = 0;
        unsigned wTag, nKind, dwOffset, dwExtent, dwCrc;
        for (tagFileDescriber a; aLines >> wTag >> a.wDataType >> a.dwFileID >> nKind >>
                                 a.dwExtraInfo >> dwOffset >> dwExtent >> dwCrc;
             ++nStream) {
            a.byFileType = static_cast<std::uint8_t>(nKind);
            ASSERT_LT(nStream, aPlayer.m_vecStreams.size());
            EXPECT_EQ(aPlayer.m_vecStreams[nStream], a);
            const auto itFirst = std::find_if(
                aPlayer.m_vecStreams.begin(), aPlayer.m_vecStreams.end(),
                [&](const tagFileDescriber& aOther) { return DataInfoMatches(InfoOf(a), aOther); });
            if (itFirst - aPlayer.m_vecStreams.begin() < std::ptrdiff_t(nStream))
                continue;  // hidden by an earlier one
            if (dwExtent > 0) {
                EXPECT_EQ(aPlayer.Read(InfoOf(a), 0, dwExtent), 0);
            }
            Settle();
            EXPECT_EQ(Crc32(aCollector.Take()), dwCrc) << a;
        }
        EXPECT_EQ(nStream, aPlayer.m_vecStreams.size());
    }

    SeededRandom m_random;
};
INSTANTIATE_BOTH_MODES(SecondReader);

TEST_P(SecondReader, AgreesAboutWhatTheScriptMadeByHand) {
    std::filesystem::create_directory("made");
    Output(c_strScript + "--make made");
    for (const char* const lpName : {"holes", "backwards", "wrapped", "circle", "idle", "cut"}) {
        SCOPED_TRACE(lpName);
        ExpectAgreement(CCmString("made/") + lpName);
    }
}

TEST_P(SecondReader, AgreesAboutWhatTheWriterWroteAndOthersLaidOut) {
    for (unsigned nRound = 0; nRound < 4; ++nRound) {
        SCOPED_TRACE(nRound);
        const std::vector<HandStream> vecStreams = RandomStreams(m_random, nRound < 2 ? 20 : 5);
        CContainerWriter aWriter;
        aWriter.SetIndexType(nRound % 2);
        std::string strSizes;
        for (const HandStream& a : vecStreams) {
            const auto* const lpData = reinterpret_cast<const unsigned char*>(a.strBytes.data());
            const auto dwLength = static_cast<CmUint32>(a.strBytes.size());
            EXPECT_EQ(aWriter.AddStream(a.Describer(), lpData, dwLength), 0);
            strSizes += std::to_string(dwLength) + "\n";
        }
        ASSERT_EQ(aWriter.Write(".\\written"), 0);
        ExpectAgreement("written");
        EXPECT_EQ(Output(c_strScript + "written | tail -n +2 | cut -d' ' -f7"), strSizes)
            << "what our writer wrote has no gaps";
        WriteBytes("odd", OddContainer(m_random, vecStreams, nRound % 2));
        ExpectAgreement("odd");
    }
}
