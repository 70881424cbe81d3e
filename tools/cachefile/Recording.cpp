#include "tools/cachefile/Recording.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "tools/HostPath.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::uint16_t c_wConfType = 100;

tagRecording LoadContainer(const std::string& strPath) {
    tagRecording aRecording;
    aRecording.strPath = strPath;
    aRecording.pIndex = std::make_shared<CContainerIndex>();
    const CContainerIndex& aIndex = *aRecording.pIndex;
    const CmInt32 lResult = aRecording.pIndex->Open(HostPath(System::Utf8Path(strPath)));
    const bool bRead = lResult == CACHE_OK || lResult == CACHE_ERR_BAD_CONTAINER ||
                       aIndex.GetEndOfWalk() != CContainerIndex::Walk_None;
    if (!bRead) throw CFailure(ResultText("cannot read " + Printable(strPath), lResult));
    aRecording.lIndexResult = lResult;
    aRecording.qwSize = aIndex.GetFileSize();
    if (const tagEntryFileHeader* const pHeader = aIndex.GetConfFileHeader()) {
        aRecording.dwFileVersion = pHeader->dwFileVersion;
        aRecording.dwCBTimeStamp = pHeader->dwCBTimeStamp;
    }
    aRecording.vecStreams = LayOutStreams(aIndex);
    return aRecording;
}

/// Reads version and time stamp from the start of a record file, if it is long enough.
void ReadEntryFileHeader(const std::filesystem::path& aFile, tagRecording& aRecording) {
    unsigned char aBytes[c_dwEntryFileHeaderSize];
    tagEntryFileHeader aHeader{};
    std::ifstream aStream(aFile, std::ios::binary);
    if (!aStream.read(reinterpret_cast<char*>(aBytes), sizeof aBytes) ||
        BuildEntryFileHeader(aBytes, aHeader) != CACHE_OK)
        return;
    aRecording.dwFileVersion = aHeader.dwFileVersion;
    aRecording.dwCBTimeStamp = aHeader.dwCBTimeStamp;
}

tagStream RecordFile(const tagFileDescriber& aDescriber, std::uint64_t qwSize) {
    tagStream aStream;
    aStream.aDescriber = aDescriber;
    aStream.bKnown = true;
    aStream.qwExtent = aStream.qwPresent = qwSize;
    tagMRFD aEntry{};
    if (FileDescriberToTag(aDescriber, aEntry) == CACHE_OK) aStream.wTag = aEntry.wTag;
    return aStream;
}

bool IsOfTheTool(const std::string& strName) {
    return strName == c_szRecordingLock || strName == c_szNotes || strName == c_szStatus ||
           strName == c_szNewStatus;
}

}  // namespace

const tagStream* tagRecording::Find(const tagFileDescriber& aDescriber) const {
    const auto aKey = [](const tagFileDescriber& a) {
        return std::tuple(a.wDataType, a.dwFileID, a.byFileType);
    };
    const auto aIsIt = [&](const tagStream& a) {
        return a.bKnown && aKey(a.aDescriber) == aKey(aDescriber);
    };
    // Those of a directory are sorted, and each of many notes looks for one.
    auto it = vecStreams.begin();
    if (!IsContainer())
        it = std::lower_bound(it, vecStreams.end(), aDescriber,
                              [&](const tagStream& a, const tagFileDescriber& aWanted) {
                                  return aKey(a.aDescriber) < aKey(aWanted);
                              });
    else
        it = std::find_if(it, vecStreams.end(), aIsIt);
    return it != vecStreams.end() && aIsIt(*it) ? &*it : nullptr;
}

tagRecording LoadDirectory(const std::string& strPath) {
    namespace fs = std::filesystem;
    tagRecording aRecording;
    aRecording.strPath = strPath;
    const fs::path aDirectory = System::NativePath(strPath);
    std::error_code aError;
    fs::directory_iterator it(aDirectory, aError);
    for (; !aError && it != fs::directory_iterator(); it.increment(aError)) {
        const std::string strName = it->path().filename().u8string();
        const auto aDescriber = ParseStreamFileName(strName);
        std::error_code aSizeError;
        const bool bFile = it->is_regular_file(aSizeError);
        const std::uint64_t qwSize = bFile ? it->file_size(aSizeError) : 0;
        if (aDescriber && bFile && !aSizeError)
            aRecording.vecStreams.push_back(RecordFile(*aDescriber, qwSize));
        else if (!IsOfTheTool(strName))
            (aDescriber ? aRecording.vecNotFiles : aRecording.vecOtherFiles).push_back(strName);
    }
    if (aError) throw CFailure("cannot read " + Printable(strPath) + ": " + aError.message());
    const auto aOrder = [](const tagStream& a) {
        return std::tuple(a.aDescriber.wDataType, a.aDescriber.dwFileID, a.aDescriber.byFileType);
    };
    std::sort(aRecording.vecStreams.begin(), aRecording.vecStreams.end(),
              [&](const tagStream& a, const tagStream& b) { return aOrder(a) < aOrder(b); });
    for (auto* pNames : {&aRecording.vecOtherFiles, &aRecording.vecNotFiles})
        std::sort(pNames->begin(), pNames->end());
    for (const tagStream& aStream : aRecording.vecStreams) {
        aRecording.qwSize += aStream.qwExtent;
        if (aStream.aDescriber.wDataType == c_wConfType && !aRecording.dwFileVersion)
            ReadEntryFileHeader(aDirectory / StreamFileName(aStream.aDescriber), aRecording);
    }
    return aRecording;
}

tagRecording LoadRecording(const std::string& strPath) {
    std::error_code aError;
    return std::filesystem::is_directory(System::NativePath(strPath), aError)
               ? LoadDirectory(strPath)
               : LoadContainer(strPath);
}

tagRecording RequireRecording(const std::string& strPath) {
    tagRecording aRecording = LoadRecording(strPath);
    if (aRecording.IsContainer() && aRecording.pIndex->GetEndOfWalk() == CContainerIndex::Walk_None)
        throw CFailure(Printable(strPath) + " is neither a recording directory nor a container");
    return aRecording;
}

tagRecording RequireContainer(const std::string& strPath) {
    tagRecording aRecording = RequireRecording(strPath);
    if (aRecording.IsContainer()) return aRecording;
    throw CFailure(Printable(strPath) + " is a recording directory and not a container");
}
