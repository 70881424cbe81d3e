#include <ctime>

#include "fileop/FileOperation.h"
#include "tests/support/HostTest.h"

using Handler = HostTest;

TEST_F(Handler, HandlesThatNameNoFileAreRefusedAndTraced) {
    Recording aRecording(Sync, nullptr);
    Recording aOther(Sync, nullptr);
    const CmUint32 dwClosed = aRecording.Open("a");
    EXPECT_EQ(aRecording->CloseFile(dwClosed), 0);
    const CmUint32 dwForeign = aOther.Open("b");
    for (const CmUint32 dwBad : {CmUint32{0}, CmUint32{123'456}, dwClosed, dwForeign}) {
        SCOPED_TRACE(dwBad);
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

/// Lets the list be looked at.
class OpenHandler final : public CWriteFileHandler {
 public:
    OpenHandler() : CWriteFileHandler(7, Sync) { AddReference(); }
    using CWriteFileHandler::Handle2Pointer;
    using CWriteFileHandler::RemoveHandle;
};

TEST_F(Handler, ClosingTheMiddleFileKeepsTheOthers) {
    auto* const pHandler = new OpenHandler;
    pHandler->Initialize(nullptr);
    CmUint32 aHandles[4] = {};
    IFileOperation* aFiles[4] = {};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(pHandler->OpenWritingFile("f" + std::to_string(i), aHandles[i]), 0);
        EXPECT_EQ(pHandler->Handle2Pointer(aHandles[i], aFiles[i]), 0);
        EXPECT_EQ(aFiles[i]->GetFileName(), Recording::PathOf("f" + std::to_string(i)));
    }
    EXPECT_EQ(pHandler->CloseFile(aHandles[1]), 0);
    EXPECT_EQ(pHandler->OpenWritingFile("f3", aHandles[3]), 0);
    IFileOperation* pFound = aFiles[0];
    EXPECT_EQ(pHandler->Handle2Pointer(aHandles[1], pFound), 10011);
    EXPECT_EQ(pFound, nullptr);
    EXPECT_EQ(pHandler->RemoveHandle(aHandles[1]), 10011);
    for (const int i : {0, 2}) {
        EXPECT_EQ(pHandler->Handle2Pointer(aHandles[i], pFound), 0);
        EXPECT_EQ(pFound, aFiles[i]);
    }
    EXPECT_EQ(pHandler->RemoveHandle(aHandles[0]), 0);
    EXPECT_EQ(pHandler->Handle2Pointer(aHandles[0], pFound), 10011);
    EXPECT_EQ(m_trace.TakeErrors(), "");
    pHandler->Destroy();
}

TEST_F(Handler, ACopyHasTheFieldsAndSharesTheFiles) {
    Recording aRecording(Sync, &m_sink);
    const CmUint32 dwHandle = aRecording.Open("a");
    auto* const pCopy = new CWriteFileHandler(*aRecording.operator->());
    EXPECT_EQ(pCopy->GetReference(), 1U);
    EXPECT_EQ(pCopy->GetTempHomeDir(), ".\\kvr2\\7\\");
    EXPECT_EQ(aRecording.Write(dwHandle, "by one, "), 0);
    EXPECT_EQ(pCopy->WriteData(dwHandle, reinterpret_cast<const unsigned char*>("by the other"), 12,
                               c_dwEnd),
              0);
    auto* const pAssigned = new CWriteFileHandler(8, Sync);
    *pAssigned = *pCopy;
    pCopy->Destroy();  // closes the file
    ExpectFile(Recording::PathOf("a"), "by one, by the other");
    EXPECT_EQ(pAssigned->CloseFile(dwHandle), 0);
    pAssigned->Destroy();
    EXPECT_EQ(aRecording.Write(dwHandle, "x", 0), 4007);
    EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
}

TEST_F(Handler, DirectoriesAreComposedAsTold) {
    CCacheFileManager& aManager = CCacheFileManager::Instance();
    EXPECT_EQ(aManager.GetTempHomeDir(), ".\\kvr2\\");
    const struct {
        const char* lpGiven;
        const char* lpKept;
    } aCases[] = {{"D:\\rec", "D:\\rec\\"},
                  {"D:\\rec\\", "D:\\rec\\"},
                  {"D:/rec/", "D:/rec/\\"},
                  {"", ""},
                  {".\\out", ".\\out\\"}};
    CWriteFileHandler* const pHandler = aManager.CreateWriteFileHandler(4294967295, Sync);
    EXPECT_EQ(pHandler->GetReference(), 1U);
    EXPECT_EQ(pHandler->GetTempHomeDir(), "");
    for (const auto& aCase : aCases) {
        aManager.SetTempHomeDir(aCase.lpGiven);
        EXPECT_EQ(aManager.GetTempHomeDir(), aCase.lpKept);
        pHandler->SetHomeDir(aCase.lpGiven);
        EXPECT_EQ(pHandler->GetTempHomeDir(), aCase.lpKept);
    }
    pHandler->Initialize(nullptr);
    EXPECT_EQ(pHandler->GetTempHomeDir(), ".\\out\\.\\out\\4294967295\\");
    aManager.SetTempHomeDir("later");
    EXPECT_EQ(pHandler->GetTempHomeDir(), ".\\out\\.\\out\\4294967295\\");
    pHandler->Initialize(nullptr);
    EXPECT_EQ(pHandler->GetTempHomeDir(), ".\\out\\.\\out\\4294967295\\later\\4294967295\\");
    EXPECT_EQ(m_trace.TakeInfos(),
              "CCacheFileManager::CreateWriteFileHandler->dwRecordID=4294967295 bAsync=0\n");
    pHandler->OnDataReady(nullptr, 0, tagDataInfo{});
    EXPECT_EQ(m_trace.TakeErrors(),
              Assertion("writer/WriteFileHandler.cpp",
                        "!\"CWriteFileHandler::OnDataReady->No implementation\""));
    pHandler->Destroy();
}

using HomeDirectory = HostModeTest;
INSTANTIATE_BOTH_MODES(HomeDirectory);

TEST_P(HomeDirectory, WorksOrGivesItsCode) {
    const struct {
        const char* lpHome;
        const char* lpExists;  // a directory that is there before, if any
        CmInt32 lResult;
    } aCases[] = {
        {".\\kvr2\\", "", 0},
        {".\\no backslash at its end", "", 0},
        {".\\with spaces\\in it\\", "", 0},
        {".\\gr\xC3\xBC\xC3\x9F"
         "e\\\xE6\x97\xA5\xE6\x9C\xAC\\",
         "", 0},
        {"relative\\", "", 4001},
        {"relative2", "relative2", 0},
        {"./slashes/", "", 4001},
        {"./slashes2/", "slashes2", 0},
        {"slashes3/deep", "slashes3/deep", 0},
        {"", "", 4001},
        {"", "7", 0},
    };
    for (const auto& aCase : aCases) {
        SCOPED_TRACE(std::string(aCase.lpHome) + "|" + aCase.lpExists);
        if (*aCase.lpExists) std::filesystem::create_directories(aCase.lpExists);
        CCacheFileManager::Instance().SetTempHomeDir(aCase.lpHome);
        Recording aRecording(GetParam(), &m_sink);
        const CCmString strPath = aRecording->GetTempHomeDir() + "deep\\file";
        CmUint32 dwHandle = 0;
        const CmInt32 lResult = aRecording->OpenWritingFile("deep\\file", dwHandle);
        EXPECT_EQ(lResult, GetParam() == Async ? 0 : aCase.lResult);
        Settle();
        EXPECT_EQ(m_sink.Take(),
                  GetParam() == Async ? "Open " + std::to_string(aCase.lResult) : "");
        if (aCase.lResult == 0) {
            EXPECT_EQ(aRecording.Write(dwHandle, "there"), 0);
            EXPECT_EQ(aRecording->CloseFile(dwHandle), 0);
            Settle();
        }
        EXPECT_EQ(ReadBytes(strPath), aCase.lResult == 0 ? "there" : "<no file>");
    }
    Recording aRecording(Sync, nullptr);
    aRecording->SetHomeDir("");
    EXPECT_EQ(aRecording.TryOpen("no directory at all"), 4005);
}

TEST(Manager, LinksConstantsAndTime) {
    CCacheFileManager& aManager = CCacheFileManager::Instance();
    EXPECT_EQ(&aManager, &CCacheFileManager::Instance());
    for (const CmInt32 lLink : {1, 2, 3, 4}) {
        const auto aLink = static_cast<CCacheFileManager::LinkType>(lLink);
        EXPECT_EQ(aManager.GetLinkStatusFromMap(42, aLink), 1);
        aManager.BeforeOperation(aLink, 42);
        EXPECT_EQ(aManager.GetLinkStatusFromMap(42, aLink), 1);
        aManager.AfterOperation(aLink);
        EXPECT_EQ(aManager.GetLinkStatusFromMap(42, aLink), 1);
    }
    EXPECT_EQ(aManager.GetFileIDMagicNumber(), 1000U);
    EXPECT_EQ(CCacheFileManager::GetMaxDword(), 0xFFFFFFFFU);
    const auto nBefore = static_cast<CmInt32>(std::time(nullptr));
    const CmInt32 lTick = aManager.GetTickCount();
    const auto lInterval = static_cast<CmInt32>(aManager.GetIntervalMs(lTick + 1000U));
    const auto nAfter = static_cast<CmInt32>(std::time(nullptr));
    EXPECT_TRUE(nBefore <= lTick && lTick <= lInterval && lInterval <= nAfter);
    EXPECT_STREQ(CacheFileResultName(4003), "CACHE_ERR_DISK_FULL");
    EXPECT_STREQ(CacheFileResultName(5), "unknown");
    EXPECT_STREQ(CacheFileResultText(5), "unknown result code");
}

TEST_F(Handler, TemporaryFilesAreDeletedAndFailuresIgnored) {
    std::filesystem::create_directories("d/full");
    for (const char* const lpPath : {"a", "b", "d/c", "kept"}) WriteBytes(lpPath, "x");
    CCacheFileManager::DeleteTempFile(".\\a");
    CCacheFileManager::DeleteTempFile(".\\a");
    CCacheFileManager::DeleteTempFile(".\\d");
    CCacheFileManager::DeleteTempFile(CCmString(".\\kept\0", 7));  // names no file
    EXPECT_TRUE(Exists("kept"));
    CCacheFileManager::DeleteAllTemp({".\\missing", ".\\d\\c", ".\\b"});
    CCacheFileManager::DeleteAllTemp({});
    EXPECT_FALSE(Exists("a") || Exists("b") || Exists("d/c"));
    CCacheFileManager::DeleteTempDir(".\\d");
    EXPECT_TRUE(Exists("d/full"));
    CCacheFileManager::DeleteTempDir(".\\d\\full");
    CCacheFileManager::DeleteTempDir(".\\d");
    EXPECT_FALSE(Exists("d"));
    EXPECT_EQ(m_trace.TakeErrors(), "");
}

TEST(DataInfo, DesignatesByTypeIdAndAnyCommonKind) {
    const tagFileDescriber aDescriber{5, 2, 1005, 77};
    const struct {
        tagDataInfo aInfo;
        bool bMatches;
    } aCases[] = {{{5, 1005, 0, 2}, true},  {{5, 1005, 9, 7}, true},  {{5, 1005, 0, 0}, false},
                  {{5, 1005, 0, 5}, false}, {{6, 1005, 0, 2}, false}, {{5, 1006, 0, 2}, false}};
    for (const auto& aCase : aCases)
        EXPECT_EQ(DataInfoMatches(aCase.aInfo, aDescriber), aCase.bMatches)
            << aCase.aInfo.wDataType << " " << aCase.aInfo.dwFileID << " "
            << int{aCase.aInfo.byFileType};
}
