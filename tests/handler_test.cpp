#include "tests/support/HostTest.h"

using Handler = HostTest;

TEST_F(Handler, InvalidHandlesAreRefusedAndTraced) {
    Recording aRecording(Sync, nullptr);
    Recording aOther(Sync, nullptr);
    const CmUint32 dwClosed = aRecording.Open("a");
    EXPECT_EQ(aRecording->CloseFile(dwClosed), 0);
    const CmUint32 dwForeign = aOther.Open("b");
    for (const CmUint32 dwBad : {CmUint32{0}, CmUint32{123'456}, dwClosed, dwForeign}) {
        EXPECT_EQ(aRecording.Write(dwBad, "x"), 4010);
        aRecording->FlushData(dwBad);
        EXPECT_EQ(aRecording->CloseFile(dwBad), 4010);
        EXPECT_EQ(aRecording->WriteData(dwBad, nullptr, 1, 0), 4009);
        const std::string strBad = std::to_string(dwBad) + " this=*\n";
        EXPECT_EQ(m_trace.TakeErrors(),
                  "CWriteFileHandler::WriteData->Bad file handle" + strBad +
                      "CWriteFileHandler::FlushData->Bad file handle=" + strBad +
                      "CWriteFileHandler::CloseFile->Bad file handle=" + strBad +
                      Assertion("writer/WriteFileHandler.cpp", "lpData"));
    }
    EXPECT_EQ(aOther.Write(dwForeign, ""), 0);
}

TEST_F(Handler, ACopyHasTheFieldsAndSharesTheFiles) {
    Recording aRecording(Sync, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    auto* const pCopy = new CWriteFileHandler(*aRecording.operator->());
    EXPECT_EQ(pCopy->GetReference(), 1U);
    EXPECT_EQ(pCopy->GetTempHomeDir(), ".\\kvr2\\7\\");
    auto* const pAssigned = new CWriteFileHandler(8, Sync);
    *pAssigned = *pCopy;
    EXPECT_EQ(aRecording.Write(dwHandle, "shared"), 0);
    pCopy->Destroy();  // closes the file
    ExpectFile(Recording::PathOf("a"), "shared");
    EXPECT_EQ(pAssigned->CloseFile(dwHandle), 0);
    pAssigned->Destroy();
    EXPECT_EQ(aRecording.Write(dwHandle, "x", 0), 4007);
}

TEST_F(Handler, DirectoriesConsistOfTheHomeAndTheRecordId) {
    CCacheFileManager& aManager = CCacheFileManager::Instance();
    EXPECT_EQ(aManager.GetTempHomeDir(), ".\\kvr2\\");
    CWriteFileHandler* const pHandler = aManager.CreateWriteFileHandler(4294967295, Sync);
    EXPECT_EQ(pHandler->GetReference(), 1U);
    const struct {
        const char* lpGiven;
        const char* lpKept;
    } aCases[] = {
        {"D:\\r", "D:\\r\\"}, {"D:\\r\\", "D:\\r\\"}, {"D:/r/", "D:/r/\\"}, {"", ""}, {"o", "o\\"}};
    for (const auto& aCase : aCases) {
        aManager.SetTempHomeDir(aCase.lpGiven);
        EXPECT_EQ(aManager.GetTempHomeDir(), aCase.lpKept);
        pHandler->SetHomeDir(aCase.lpGiven);
        EXPECT_EQ(pHandler->GetTempHomeDir(), aCase.lpKept);
    }
    pHandler->Initialize(nullptr);
    EXPECT_EQ(pHandler->GetTempHomeDir(), "o\\o\\4294967295\\");
    EXPECT_EQ(m_trace.TakeInfos(),
              "CCacheFileManager::CreateWriteFileHandler->dwRecordID=4294967295 bAsync=0\n");
    pHandler->OnDataReady(nullptr, 0, tagDataInfo{});
    EXPECT_EQ(m_trace.TakeErrors(),
              Assertion("writer/WriteFileHandler.cpp",
                        "!\"CWriteFileHandler::OnDataReady->No implementation\""));
    pHandler->Destroy();
}

TEST_F(Handler, TemporaryFilesAreDeletedAndFailuresIgnored) {
    std::filesystem::create_directories("d/full");
    for (const char* const lpPath : {"a", "b", "kept"}) WriteBytes(lpPath, "x");
    CCacheFileManager::DeleteTempFile(
        CCmString(".\\kept\0", 7));  // a zero byte does not end a name
    CCacheFileManager::DeleteAllTemp({".\\missing", ".\\a", ".\\b"});
    CCacheFileManager::DeleteTempDir(".\\d");
    EXPECT_TRUE(!Exists("a") && !Exists("b") && Exists("kept") && Exists("d/full"));
    CCacheFileManager::DeleteTempDir(".\\d\\full");
    EXPECT_FALSE(Exists("d/full"));
}
