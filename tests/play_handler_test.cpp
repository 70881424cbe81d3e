#include "tests/support/Player.h"

using Play = HostModeTest;
INSTANTIATE_BOTH_MODES(Play);

namespace {

constexpr char c_szNamed[] = " FileID=7008 DataType=8 FileType=2";
constexpr auto c_aLocal = CCacheFileManager::Link_Local;

/// A container .\c with the stream that c_aInfo selects, version 3 and time stamp 4.
void PackContainer() {
    CContainerWriter aWriter;
    aWriter.SetFileHeader(3, 4);
    EXPECT_EQ(AddStream(aWriter, c_aStream, "abcdef"), 0);
    EXPECT_EQ(aWriter.Write(".\\c"), 0);
}

std::string Refused(const std::string& strOperation, const char* lpLength) {
    return "CPlayFileHandler::" + strOperation + "->DataInfo2FileHandler error" + c_szNamed +
           lpLength + "99 this=*\n";
}

const std::string c_strHandler = "player/PlayFileHandler.cpp";
const std::string c_strAccess = "player/PlayDataAccess.cpp";
const std::string c_strContainer = "download/PlayDataFile.cpp";

}  // namespace

TEST_P(Play, InvalidCallsForRecordFilesReturnACodeAndAreTraced) {
    const bool bAsync = GetParam() == Async;
    Player aPlayer(GetParam(), &m_sink, Player::ForFiles);
    EXPECT_EQ(aPlayer.Open("c"), 4010);
    EXPECT_EQ(m_trace.TakeErrors(), Assertion(c_strHandler, "m_bDownload"));
    EXPECT_EQ(aPlayer.Write(c_aInfo, "x", 0), 4010);
    EXPECT_EQ(aPlayer.Read(c_aInfo, 0, 1), 4010);
    EXPECT_EQ(aPlayer.SyncRead(c_aInfo, 0, 1), "4010");
    EXPECT_EQ(m_trace.TakeErrors(), Refused("WriteData", " DataLen=") +
                                        Refused("ReadData", " DataSize=") +
                                        Refused("SyncReadData", " DataSize="));

    EXPECT_EQ(aPlayer.OpenFile("missing", c_aStream), bAsync ? 0 : 4001);
    Settle();
    EXPECT_EQ(m_sink.Take(), bAsync ? "Open 4001" : "");
    EXPECT_EQ(aPlayer->GetFileStatus(c_aLocal), bAsync ? 4001 : 0);
    EXPECT_EQ(aPlayer.Read(c_aInfo, 0, 1), bAsync ? 4006 : 4010);
    EXPECT_EQ(aPlayer.SyncRead(c_aInfo, 0, 1), bAsync ? "4001" : "4010");
    EXPECT_EQ(m_trace.TakeErrors(),
              "CLocalFile::Open->Open reading only File Error=2 this=*\n" +
                  (bAsync ? "COpenCloseEvent::OnEventFire->Open File error:.\\kvr2\\7\\missing "
                            "this=*\n"
                            "CPlayFileHandler::ReadData->Read data error4006 this=*\n"
                            "CPlayFileHandler::SyncReadData->Read data error4001 this=*\n"
                          : "CPlayFileHandler::OpenRecordFile->Open file error=4001 this=*\n" +
                                Refused("ReadData", " DataSize=") +
                                Refused("SyncReadData", " DataSize=")));

    WriteBytes("kvr2/7/a", "there");
    const tagDataInfo aInfo{1, 1, 0, 1};
    EXPECT_EQ(aPlayer.OpenFile("a", {1, 1, 1, 0}), 0);
    Settle();
    EXPECT_EQ(aPlayer.Write(aInfo, "x", 0), 4010) << "opened for reading";
    EXPECT_EQ(aPlayer->WriteData(aInfo, nullptr, 1, 0), 4009);
    EXPECT_EQ(aPlayer->ReadData(aInfo, nullptr, 0, 1), 4009);
    EXPECT_EQ(aPlayer.Read(aInfo, 0, 0), 4009);
    EXPECT_EQ(aPlayer.SyncRead(aInfo, 0, 0), "4009");
    CmUint32 dwOne = 1;
    EXPECT_EQ(aPlayer->SyncReadData(aInfo, nullptr, 0, dwOne), 4009);
    const std::string strLink = bAsync ? "async/FileThreadProxy.cpp" : "fileop/LocalFile.cpp";
    const std::string strRead = "CPlayFileHandler::ReadData->Read data error4009 this=*\n";
    const std::string strSyncRead = "CPlayFileHandler::SyncReadData->Read data error4009 this=*\n";
    EXPECT_EQ(m_trace.TakeErrors(),
              Assertion(c_strAccess, "lpData") + Assertion(strLink, "lpBuffer") + strRead +
                  Assertion(strLink, "dwLength") + strRead + Assertion(strLink, "dwLength") +
                  strSyncRead +
                  Assertion(strLink, bAsync ? "lpBuffer&&m_pFileOp.Get( )" : "lpBuffer") +
                  strSyncRead);
    ExpectFile("kvr2/7/a", "there");

    EXPECT_EQ(aPlayer.OpenFile("empty", {1, 1, 2, 0}, 1), 0);
    for (const CmUint32 dwOffset : {CmUint32{0}, c_dwEnd})
        EXPECT_EQ(aPlayer->WriteData({1, 2, 0, 1}, nullptr, 0, dwOffset), 0);
    Settle();
    ExpectFile("kvr2/7/empty", "");
    EXPECT_EQ(aPlayer.Write({1, 2, 0, 1}, "x", c_dwEnd), 0);
    ExpectFile("kvr2/7/empty", bAsync ? "" : "x");  // a synchronous player gathers nothing
    EXPECT_EQ(m_trace.TakeErrors(), "");

    m_sink.Take();
    EXPECT_EQ(aPlayer->CloseAllRecordFiles(), 0);
    EXPECT_EQ(aPlayer.Read(aInfo, 0, 1), bAsync ? 0 : 4007);
    EXPECT_EQ(aPlayer.SyncRead(aInfo, 0, 1), "4007");
    Settle();
    EXPECT_EQ(m_sink.Take(), bAsync ? "Data 0, Read 4007" : "");
}

TEST_P(Play, InvalidCallsForContainersReturnACodeAndAreTraced) {
    PackContainer();
    Player aPlayer(GetParam(), &m_sink);
    EXPECT_EQ(aPlayer->GetReference(), 1U);
    EXPECT_EQ(aPlayer->GetFileVersion() + aPlayer->GetCBTimeStamp(), 0U);
    EXPECT_EQ(aPlayer.Open("c"), 0);
    EXPECT_EQ(aPlayer->GetFileVersion(), 3U);
    EXPECT_EQ(aPlayer->GetCBTimeStamp(), 4U);
    EXPECT_EQ(aPlayer.Open("c"), 4008);
    EXPECT_EQ(aPlayer.OpenFile("a", c_aStream, 1), 4010);
    EXPECT_EQ(aPlayer.Write(c_aInfo, "x", 0), 4010);
    const std::string strOpen = Assertion(c_strHandler, "!m_pDownloadFile");
    EXPECT_EQ(m_trace.TakeErrors(), strOpen + strOpen + Assertion(c_strAccess, "!m_pDownloadFile"));
    EXPECT_EQ(aPlayer.SyncRead(c_aInfo, 0, 1), "4010");
    EXPECT_EQ(m_trace.TakeErrors(), "");

    EXPECT_EQ(aPlayer->ReadData(c_aInfo, nullptr, 0, 0), 4009);
    EXPECT_EQ(aPlayer.Read(c_aInfo, 0, 0), 4009);
    EXPECT_EQ(aPlayer.Read({8, 7009, 3, 255}, 0, 1), 4009);
    EXPECT_EQ(m_trace.TakeErrors(),
              Assertion(c_strContainer, "lpBuffer") + Assertion(c_strContainer, "dwLength") +
                  "CDownloadFileHandler::ReadData->Cann't find MRFD for DataInfo FileID=7009 "
                  "DataType=8 FileType=255 DataSize=3 this=*\n");
    EXPECT_EQ(aPlayer->CloseAllRecordFiles(), 0);
    EXPECT_EQ(aPlayer.Read(c_aInfo, 0, 1), 4007);
    EXPECT_EQ(m_trace.TakeErrors(), Assertion(c_strContainer, "m_pFileOp.Get( )"));
    EXPECT_EQ(aPlayer->GetFileVersion(), 3U) << "the version is kept after the close";
    Settle();
    EXPECT_EQ(m_sink.Take(), GetParam() == Async ? "Open 0" : "");
    const std::string strInfos = m_trace.TakeInfos();
    EXPECT_EQ(strInfos.find("CCacheFileManager::CreatePlayFileHandler->dwRecordID=7 bAsync=" +
                            std::to_string(GetParam()) + "\n"),
              0U);
    EXPECT_NE(
        strInfos.find("CDownloadFileHandler::OpenDownloadedFile->Open downloaded file=c this=*\n"),
        std::string::npos);
}

TEST_P(Play, AContainerThatCannotBeOpenedIsReported) {
    const struct {
        const char* lpPath;
        const char* lpLine;  // the line that the file link traces
        CmInt32 lResult;
    } aCases[] = {{".\\missing", "CLocalFile::Open->Open reading only File Error=2 this=*\n", 4001},
                  {"", "", 4006}};
    for (const auto& aCase : aCases) {
        const std::string strPath(aCase.lpPath), strCode = std::to_string(aCase.lResult);
        Player aPlayer(GetParam(), &m_sink);
        EXPECT_EQ(aPlayer.Open(strPath), aCase.lResult);
        EXPECT_TRUE(aPlayer.m_vecStreams.empty());
        EXPECT_EQ(m_sink.Take(), "");
        Settle();
        EXPECT_EQ(m_sink.Take(), GetParam() == Async ? "Open " + strCode : "");
        EXPECT_EQ(aPlayer->GetFileStatus(c_aLocal), GetParam() == Async ? aCase.lResult : 0);
        const std::string strFile = aCase.lpLine;
        EXPECT_EQ(m_trace.TakeErrors(),
                  GetParam() == Async
                      ? strFile + "COpenCloseEvent::OnEventFire->Open File error:" + strPath +
                            " this=*\nCDownloadFileHandler::InitFileInfo->Read File header error=" +
                            strCode + " this=*\n"
                      : strFile +
                            "CDownloadFileHandler::OpenDownloadedFile->Open file error, file=" +
                            strPath + " ret=" + strCode + " this=*\n");
        EXPECT_EQ(aPlayer.Open("c"), 4008) << "a second open is refused";
        EXPECT_EQ(aPlayer.Read(c_aInfo, 0, 1), 4009);
        m_trace.TakeErrors();
    }
}

TEST_P(Play, TheFirstBlockThatHoldsAHeaderGivesVersionAndTimeStamp) {
    const struct {
        const char* lpName;
        std::uint16_t wDataType;
        CmUint32 dwOffset;
        CCmString strBlock;
        CmUint32 dwVersion, dwTimeStamp;  // afterwards
    } aCases[] = {
        {"type five has none", 5, 0, ConfBytes(1, 2), 0, 0},
        {"not at the start", 8, 1, ConfBytes(1, 2), 0, 0},
        {"at the end", 8, c_dwEnd, ConfBytes(1, 2), 0, 0},
        {"too short", 8, 0, ConfBytes(1, 2).substr(0, 71), 0, 0},
        {"no time stamp yet", 8, 0, ConfBytes(3, 0), 3, 0},
        {"another without", 20, 0, ConfBytes(4, 0, 100), 4, 0},
        {"the one", 20, 0, ConfBytes(5, 0x80000001), 5, 0x80000001},
        {"once is enough", 8, 0, ConfBytes(6, 7), 5, 0x80000001},
    };
    Player aPlayer(GetParam(), nullptr, Player::ForFiles);
    for (const std::uint16_t wType : {std::uint16_t{5}, std::uint16_t{8}, std::uint16_t{20}})
        EXPECT_EQ(aPlayer.OpenFile(std::to_string(wType), {wType, 2, 1, 0}, 1), 0);
    for (const auto& aCase : aCases) {
        EXPECT_EQ(aPlayer.Write({aCase.wDataType, 1, 0, 2}, aCase.strBlock, aCase.dwOffset), 0);
        EXPECT_EQ(aPlayer->GetFileVersion(), aCase.dwVersion) << aCase.lpName;
        EXPECT_EQ(aPlayer->GetCBTimeStamp(), aCase.dwTimeStamp) << aCase.lpName;
    }
    aPlayer.Destroy();
    CacheFileShutdown();
    ExpectFile("kvr2/7/5", ConfBytes(1, 2));
    ExpectFile("kvr2/7/20", ConfBytes(5, 0x80000001) + ConfBytes(4, 0, 100).substr(72));
    EXPECT_EQ(m_trace.TakeErrors(), "");
}

TEST_P(Play, TheStatusIsKeptUntilInitialize) {
    Player aPlayer(GetParam(), &m_sink, Player::ForFiles);
    const std::string strAssertion =
        Assertion(c_strHandler, "aLinkType == CCacheFileManager::Link_Local");
    for (const CmInt32 lResult : {4003, 0}) {  // a failure stays
        aPlayer->OnFileOpStatus(c_aLocal, CCacheFileManager::Op_Write, lResult);
        EXPECT_EQ(m_sink.Take(), "Write " + std::to_string(lResult));
        EXPECT_EQ(aPlayer->GetFileStatus(c_aLocal), 4003);
    }
    aPlayer->OnFileOpStatus(CCacheFileManager::Link_Backup, CCacheFileManager::Op_Write, 4001);
    EXPECT_EQ(aPlayer->GetFileStatus(c_aLocal), 4003);
    EXPECT_EQ(aPlayer->GetFileStatus(CCacheFileManager::Link_Backup), 4009);
    EXPECT_EQ(m_trace.TakeErrors(), strAssertion + strAssertion);
    EXPECT_EQ(m_sink.Take(), "");
    EXPECT_EQ(aPlayer->Initialize(&m_sink), 0);
    EXPECT_EQ(aPlayer->GetFileStatus(c_aLocal), 0);
    EXPECT_EQ(aPlayer->GetTempHomeDir(), ".\\kvr2\\7\\.\\kvr2\\7\\");
}
