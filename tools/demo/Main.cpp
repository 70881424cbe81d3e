// The demonstration: records streams in asynchronous mode, as a host does it, and proves that the
// record files hold what the streams gave. Then it plays them, packs them into a container and
// plays that in both modes. The script demo in the project's root runs it.

#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "async/Shutdown.h"
#include "download/ContainerWriter.h"
#include "platform/CmCallerThread.h"
#include "tools/HostPath.h"
#include "tools/demo/Compare.h"
#include "tools/demo/DemoError.h"
#include "tools/demo/Player.h"
#include "tools/demo/Progress.h"
#include "tools/demo/Recorder.h"
#include "tools/demo/Report.h"
#include "tools/demo/Source.h"

namespace {

constexpr CmUint32 c_dwRecordID = 1;
constexpr CmUint32 c_dwFileVersion = 1;
constexpr char c_szContainer[] = "recording.qxf";

constexpr char c_szUsage[] =
    "cachefile_demo --into DIRECTORY [--progress] (--archive FILE | [--] FILE...)\n"
    "\n"
    "  --into DIRECTORY  where the recording is made: a directory that is empty or not there\n"
    "  --archive FILE    records a made-up sound, a made-up chat and this file\n"
    "  FILE...           records these files\n"
    "  --progress        draws a progress bar on standard error";

struct tagOptions {
    std::string strInto;
    std::string strArchive;
    std::vector<std::string> vecFiles;
    bool bProgress = false;
};

tagOptions ParseOptions(const std::vector<std::string>& vecArguments) {
    tagOptions aOptions;
    bool bOnlyFiles = false;
    for (std::size_t n = 0; n < vecArguments.size(); ++n) {
        const std::string& strArgument = vecArguments[n];
        const bool bHasValue = n + 1 < vecArguments.size();
        if (bOnlyFiles || strArgument.compare(0, 2, "--") != 0)
            aOptions.vecFiles.push_back(strArgument);
        else if (strArgument == "--")
            bOnlyFiles = true;
        else if (strArgument == "--progress")
            aOptions.bProgress = true;
        else if (strArgument == "--into" && bHasValue)
            aOptions.strInto = vecArguments[++n];
        else if (strArgument == "--archive" && bHasValue)
            aOptions.strArchive = vecArguments[++n];
        else
            throw CDemoError("what is meant by " + strArgument + "?\n" + c_szUsage);
    }
    if (aOptions.strInto.empty() || aOptions.strArchive.empty() == aOptions.vecFiles.empty())
        throw CDemoError(std::string("what is to be recorded, and where?\n") + c_szUsage);
    return aOptions;
}

/// Nothing of an earlier recording may stand in for the new one, and nothing is deleted here.
void CheckDirectory(const std::string& strInto) {
    std::error_code aError;
    if (std::filesystem::exists(strInto, aError) && !std::filesystem::is_empty(strInto, aError))
        throw CDemoError(strInto + ": there is something already");
    const bool bSlash = std::filesystem::path::preferred_separator == '/';
    if (bSlash && strInto.find('\\') != std::string::npos)
        throw CDemoError(strInto + ": the library takes a backslash for a separator");
}

/// The library's asynchronous mode, on the calling thread, for as long as this lives.
class CLibrary {
 public:
    CLibrary() { Check("attach the thread", m_guard.GetResult()); }
    ~CLibrary() { CacheFileShutdown(); }
    CLibrary(const CLibrary&) = delete;
    CLibrary& operator=(const CLibrary&) = delete;

 private:
    const CCmCallerThreadGuard m_guard;
};

std::uint64_t TotalSize(const Sources& vecSources) {
    std::uint64_t qwTotal = 0;
    for (const auto& pSource : vecSources) qwTotal += pSource->GetSize();
    return qwTotal;
}

std::vector<tagRecorded> Record(Sources& vecSources, const tagOptions& aOptions) {
    CRecorder aRecorder(vecSources, c_dwRecordID, aOptions.strInto);
    CProgress aProgress(TotalSize(vecSources), aOptions.bProgress);
    aRecorder.Record(aProgress);
    return aRecorder.GetRecorded();
}

void CompareAll(Sources& vecSources, const std::string& strDirectory) {
    for (const auto& pSource : vecSources)
        CompareWithSource(*pSource, strDirectory + RecordFileName(pSource->GetDescriber()));
}

/// What is recorded here is packed too, and a container ends before 4 GiB.
void CheckSize(const Sources& vecSources) {
    if (TotalSize(vecSources) >= 0xFFFF0000)
        throw CDemoError("together that is too much for a container, which holds less than 4 GiB");
}

/// Reads the record files back by what they hold.
void PlayRecordFiles(Sources& vecSources, std::vector<tagPlayed>& vecPlayed) {
    CPlayer aPlayer(c_dwRecordID, false, true);
    aPlayer.OpenRecordFiles(vecSources);
    for (std::size_t n = 0; n < vecSources.size(); ++n)
        vecPlayed[n].dPlaySeconds = aPlayer.Play(*vecSources[n]);
}

void Pack(const Sources& vecSources, const std::string& strDirectory,
          const std::string& strContainer) {
    CContainerWriter aWriter;
    aWriter.SetFileHeader(c_dwFileVersion, static_cast<CmUint32>(std::time(nullptr)));
    for (const auto& pSource : vecSources)
        Check("pack " + pSource->GetName(),
              aWriter.AddStreamFile(
                  pSource->GetDescriber(),
                  HostPath(strDirectory + RecordFileName(pSource->GetDescriber()))));
    Check("write " + strContainer, aWriter.Write(HostPath(strContainer)));
}

/// Reads the container's streams in both modes.
void PlayContainer(Sources& vecSources, const std::string& strContainer,
                   std::vector<tagPlayed>& vecPlayed) {
    for (const bool bAsync : {true, false}) {
        CPlayer aPlayer(c_dwRecordID, true, bAsync);
        aPlayer.OpenContainer(strContainer, vecSources);
        for (std::size_t n = 0; n < vecSources.size(); ++n)
            vecPlayed[n].dContainerSeconds += aPlayer.Play(*vecSources[n]);
    }
}

void Run(const tagOptions& aOptions) {
    CheckDirectory(aOptions.strInto);
    Sources vecSources = aOptions.strArchive.empty() ? MakeFileSources(aOptions.vecFiles)
                                                     : MakeOwnSources(aOptions.strArchive);
    CheckSize(vecSources);
    const CLibrary aLibrary;
    const CStopwatch aTime;
    const std::vector<tagRecorded> vecRecorded = Record(vecSources, aOptions);
    const double dSeconds = aTime.GetSeconds();

    const std::string strDirectory = RecordingDirectory(aOptions.strInto, c_dwRecordID);
    CompareAll(vecSources, strDirectory);
    const std::string strContainer = aOptions.strInto + "/" + c_szContainer;
    std::vector<tagPlayed> vecPlayed(vecSources.size());
    PlayRecordFiles(vecSources, vecPlayed);
    Pack(vecSources, strDirectory, strContainer);
    PlayContainer(vecSources, strContainer, vecPlayed);
    CReport(vecSources, vecRecorded, vecPlayed).Print(dSeconds);
    if (CCacheFileManager::GetLostBytes() > 0) throw CDemoError("bytes were lost");
    std::printf(
        "\nEach record file equals its source, byte for byte, and so does what was played of the\n"
        "record files and, in both modes, of the container. They are\n%s\n%s\n",
        strDirectory.c_str(), strContainer.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Run(ParseOptions({argv + 1, argv + argc}));
        return 0;
    } catch (const std::exception& aError) {
        std::fprintf(stderr, "demo: %s\n", aError.what());
        return 1;
    }
}
