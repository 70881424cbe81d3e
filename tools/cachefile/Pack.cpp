#include <map>

#include "download/ContainerFormat.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Packing.h"
#include "tools/cachefile/Recording.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

/// Why a record file can't be packed is told here, where its name is known.
void RequirePackable(const tagStream& aStream, const std::string& strDirectory) {
    const std::string strWho = aStream.Name() + " of " + Printable(strDirectory);
    if (!aStream.wTag)
        throw CFailure("no container can hold " + strWho +
                       ": no tag stands for its type and kind with this id");
    if (aStream.wTag == c_wConfTag && aStream.qwExtent < c_dwEntryFileHeaderSize)
        throw CFailure(strWho + " is shorter than the " + std::to_string(c_dwEntryFileHeaderSize) +
                       " bytes of its header");
}

/// One after the other, so that the streams of a directory stand together.
tagPacking Collect(const tagPackOptions& aOptions) {
    tagPacking aPacking;
    std::map<std::string, std::string> mapSeen;
    tagPackHeader aHeader{0, 0};
    for (const std::string& strDirectory : aOptions.vecDirectories) {
        const tagRecording aRecording = LoadDirectory(strDirectory);
        for (const std::string& strName : aRecording.vecOtherFiles)
            Warn(Printable(strDirectory + "/" + strName) + " is left out: no record file");
        for (const tagStream& aStream : aRecording.vecStreams) {
            RequirePackable(aStream, strDirectory);
            const auto [it, bNew] = mapSeen.try_emplace(aStream.Name(), strDirectory);
            if (!bNew)
                throw CFailure(aStream.Name() + " stands in " + Printable(it->second) + " and in " +
                               Printable(strDirectory));
            aPacking.vecSources.push_back({aStream.aDescriber, strDirectory, aStream.qwExtent});
        }
        if (aRecording.dwFileVersion)
            aHeader = {*aRecording.dwFileVersion, *aRecording.dwCBTimeStamp};
    }
    if (aPacking.vecSources.empty()) throw CFailure("there is no record file to pack");
    aPacking.dwIndexType = aOptions.dwIndexType;
    aPacking.aProgress = aOptions.aProgress;
    if (aOptions.dwFileVersion || aOptions.dwCBTimeStamp)
        aPacking.aHeader = tagPackHeader{aOptions.dwFileVersion.value_or(aHeader.dwFileVersion),
                                         aOptions.dwCBTimeStamp.value_or(aHeader.dwCBTimeStamp)};
    return aPacking;
}

void RequireSafeOutput(const tagPackOptions& aOptions, const tagPacking& aPacking) {
    const std::filesystem::path aOutput = System::NativePath(aOptions.strOutput);
    RequireFree(aOutput, aOptions.bForce);
    std::error_code aError;
    for (const tagPackSource& aSource : aPacking.vecSources)
        if (std::filesystem::equivalent(
                aOutput,
                System::NativePath(aSource.strDirectory) / StreamFileName(aSource.aDescriber),
                aError))
            throw CFailure(Printable(aOptions.strOutput) + " is one of the files to be packed");
}

void PrintResult(const tagPackOptions& aOptions, const tagPacking& aPacking) {
    if (!aOptions.bJson)
        return Print("packed " + Grouped(aPacking.vecSources.size()) + " streams, " +
                     Grouped(aPacking.CountBytes()) + " bytes" +
                     (aOptions.bVerify ? ", read back and compared" : "") + ": " +
                     Printable(aOptions.strOutput) + "\n");
    Json aDocument = NewDocument("pack");
    aDocument["output"] = aOptions.strOutput;
    aDocument["bytes"] = aPacking.CountBytes();
    aDocument["verified"] = aOptions.bVerify;
    aDocument["streams"] = Json::array();
    for (const tagPackSource& aSource : aPacking.vecSources)
        aDocument["streams"].push_back({{"stream", StreamName(aSource.aDescriber)},
                                        {"directory", aSource.strDirectory},
                                        {"bytes", aSource.qwSize}});
    PrintDocument(aDocument);
}

}  // namespace

int Pack(const tagPackOptions& aOptions) {
    const tagPacking aPacking = Collect(aOptions);
    RequireSafeOutput(aOptions, aPacking);
    const std::filesystem::path aOutput = System::NativePath(aOptions.strOutput);
    RemoveAbandoned(aOutput);
    CPartialName aPartial(aOutput);
    WriteContainer(aPacking, aPartial);
    if (aOptions.bVerify) VerifyContainer(aPacking, aPartial.GetPath());
    GiveName(aPartial.GetPath(), aOutput, aOptions.bForce);
    PrintResult(aOptions, aPacking);
    return Exit_Done;
}
