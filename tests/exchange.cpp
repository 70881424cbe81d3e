// Writes a recording and its containers, or reads and compares what this program wrote, maybe on
// another system.
//
//     exchange write|read DIRECTORY

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "cachefile.h"
#include "tools/HostPath.h"

namespace {

struct tagStreamToWrite {
    const char* lpName;
    tagFileDescriber aDescriber;
    CmUint32 dwSize;
};

constexpr tagStreamToWrite c_aStreams[] = {
    {"1_2001-2.dat", {1, 2, 2001, 7}, 100000},
    {"4_7004-4.dat", {4, 4, 7004, 0}, 32768},
    {"4_7004-1.dat", {4, 1, 7004, 0}, 0},
    {"100_100-2.dat", {100, 2, 100, 0}, 333},
};
constexpr CmUint32 c_dwVersion = 3;
constexpr CmUint32 c_dwTimeStamp = 0x65432100;

std::string BytesOf(const tagStreamToWrite& aStream) {
    std::string strBytes(aStream.dwSize, '\0');
    CmUint32 dwState = aStream.aDescriber.dwFileID + aStream.aDescriber.byFileType;
    for (char& cByte : strBytes) {
        dwState = dwState * 1664525 + 1013904223;
        cByte = static_cast<char>(dwState >> 24);
    }
    return strBytes;
}

[[noreturn]] void Fail(const std::string& strWhat, CmInt32 lResult) {
    std::cerr << "exchange: " << strWhat << ": " << lResult << " " << CacheFileResultText(lResult)
              << "\n";
    std::exit(1);
}

void Check(const std::string& strWhat, CmInt32 lResult) {
    if (lResult != CACHE_OK) Fail(strWhat, lResult);
}

std::string Container(const std::string& strDirectory, CmUint32 dwIndexType) {
    return strDirectory + "container-" + std::to_string(dwIndexType) + ".qxf";
}

void WriteAll(const std::string& strDirectory) {
    CWriteFileHandler* const pWriter = CCacheFileManager::Instance().CreateWriteFileHandler(1, 0);
    pWriter->SetHomeDir(strDirectory);
    CContainerWriter aContainer;
    aContainer.SetFileHeader(c_dwVersion, c_dwTimeStamp);
    for (const tagStreamToWrite& aStream : c_aStreams) {
        const std::string strBytes = BytesOf(aStream);
        const auto lpBytes = reinterpret_cast<const unsigned char*>(strBytes.data());
        CmUint32 dwHandle = 0;
        Check(aStream.lpName, pWriter->OpenWritingFile(aStream.lpName, dwHandle));
        Check(aStream.lpName, pWriter->WriteData(dwHandle, lpBytes, aStream.dwSize,
                                                 CCacheFileManager::GetMaxDword()));
        Check(aStream.lpName, pWriter->CloseFile(dwHandle));
        Check(aStream.lpName,
              aContainer.AddStreamFile(aStream.aDescriber, strDirectory + aStream.lpName));
    }
    pWriter->Destroy();
    for (CmUint32 dwIndexType : {CmUint32{Index_Packed}, CmUint32{Index_Chained}}) {
        Check("index type", aContainer.SetIndexType(dwIndexType));
        Check("container", aContainer.Write(Container(strDirectory, dwIndexType)));
    }
}

/// Keeps the bytes of the last read.
class CReadSink final : public IFileOpSink {
 public:
    void OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) override {}
    void OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) override {
        m_strData.assign(reinterpret_cast<char*>(lpData), dwLength);
        delete[] lpData;
    }
    std::string m_strData;
};

/// The same bytes, but for the two header fields that the container's writer sets.
std::string InContainer(const tagStreamToWrite& aStream) {
    std::string strBytes = BytesOf(aStream);
    if (aStream.aDescriber.wDataType != 100) return strBytes;
    for (unsigned i = 0; i < 4; ++i) {
        strBytes[c_dwFileVersionOffset + i] = static_cast<char>(c_dwVersion >> 8 * i);
        strBytes[c_dwCBTimeStampOffset + i] = static_cast<char>(c_dwTimeStamp >> 8 * i);
    }
    return strBytes;
}

void Compare(CPlayFileHandler& aPlayer, CReadSink& aSink, const tagStreamToWrite& aStream,
             const std::string& strWanted) {
    if (strWanted.empty()) return;
    const tagDataInfo aInfo{aStream.aDescriber.wDataType, aStream.aDescriber.dwFileID,
                            aStream.dwSize, aStream.aDescriber.byFileType};
    Check(aStream.lpName,
          aPlayer.ReadData(aInfo, new unsigned char[aStream.dwSize], 0, aStream.dwSize));
    if (aSink.m_strData != strWanted) Fail(std::string(aStream.lpName) + " differs", 0);
}

void ReadAll(const std::string& strDirectory) {
    CReadSink aSink;
    CPlayFileHandler* const pFiles = CCacheFileManager::Instance().CreatePlayFileHandler(1, 0, 0);
    pFiles->Initialize(&aSink);
    pFiles->SetHomeDir(strDirectory);
    for (const tagStreamToWrite& aStream : c_aStreams) {
        Check(aStream.lpName, pFiles->OpenRecordFile(aStream.lpName, aStream.aDescriber, 0));
        Compare(*pFiles, aSink, aStream, BytesOf(aStream));
    }
    pFiles->Destroy();

    for (CmUint32 dwIndexType : {CmUint32{Index_Packed}, CmUint32{Index_Chained}}) {
        CPlayFileHandler* const pPlayer =
            CCacheFileManager::Instance().CreatePlayFileHandler(1, 1, 0);
        pPlayer->Initialize(&aSink);
        std::vector<tagFileDescriber> vecStreams;
        Check("container",
              pPlayer->OpenDownloadedFile(Container(strDirectory, dwIndexType), vecStreams));
        if (vecStreams.size() != std::size(c_aStreams)) Fail("number of streams", 0);
        if (pPlayer->GetFileVersion() != c_dwVersion || pPlayer->GetCBTimeStamp() != c_dwTimeStamp)
            Fail("file header", 0);
        for (const tagStreamToWrite& aStream : c_aStreams)
            Compare(*pPlayer, aSink, aStream, InContainer(aStream));
        pPlayer->Destroy();
    }
}

}  // namespace

int main(int nArguments, char** lpArguments) {
    const std::string strVerb = nArguments == 3 ? lpArguments[1] : "";
    if (strVerb != "write" && strVerb != "read") {
        std::cerr << "usage: exchange write|read DIRECTORY\n";
        return 2;
    }
    const std::string strDirectory = HostDirectory(lpArguments[2]);
    if (strVerb == "write")
        WriteAll(strDirectory);
    else
        ReadAll(strDirectory);
    std::cout << strVerb << " " << std::size(c_aStreams) << " record files and 2 containers\n";
    return 0;
}
