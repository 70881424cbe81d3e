#include <map>
#include <set>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/PackNotes.h"
#include "tools/cachefile/Packing.h"
#include "tools/cachefile/Recording.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

using Selection = std::set<std::string>;

/// Whether a stream is packed. A stream that no container can hold is an error, or is left out.
bool IsPacked(const tagPackOptions& aOptions, const Selection& setWanted, const tagStream& aStream,
              const std::string& strDirectory) {
    if (!setWanted.empty() && setWanted.count(aStream.Name()) == 0) return false;
    const std::string strFault = PackFault(aStream.aDescriber, aStream.qwExtent);
    if (strFault.empty()) return true;
    const std::string strName = aStream.Name() + " of " + Printable(strDirectory);
    if (!aOptions.bSkipUnpackable)
        throw CFailure("cannot pack " + strName + ": " + strFault +
                       " (use `--skip-unpackable` to leave such streams out)");
    Warn(strName + " is left out: " + strFault);
    return false;
}

/// mapSeen has the directory of each stream that was added before.
void AddSource(tagPacking& aPacking, std::map<std::string, std::string>& mapSeen,
               CPackNotes& aNotes, const tagStream& aStream, const std::string& strDirectory) {
    const auto [it, bNew] = mapSeen.try_emplace(aStream.Name(), strDirectory);
    if (!bNew)
        throw CFailure(aStream.Name() + " is in " + Printable(it->second) + " and in " +
                       Printable(strDirectory));
    aPacking.vecSources.push_back(
        {aStream.aDescriber, strDirectory, aStream.qwExtent, aNotes.AddStream(aStream)});
}

void RequireWanted(const Selection& setWanted, const Selection& setFound) {
    for (const std::string& strName : setWanted)
        if (setFound.count(strName) == 0)
            throw CFailure("there is no record file of the stream " + strName);
}

/// Adds one directory after another, so that the streams of each are together.
tagPacking Collect(const tagPackOptions& aOptions, CPackNotes& aNotes) {
    tagPacking aPacking;
    Selection setWanted, setFound;
    std::map<std::string, std::string> mapSeen;
    for (const std::string& strStream : aOptions.vecStreams)
        setWanted.insert(StreamName(RequireStream(strStream)));
    tagPackHeader aHeader{0, 0};
    for (const std::string& strDirectory : aOptions.vecDirectories) {
        const tagRecording aRecording = LoadDirectory(strDirectory);
        aNotes.AddDirectory(aRecording);
        for (const std::string& strName : aRecording.vecOtherFiles)
            Warn(Printable(strDirectory + "/" + strName) + " is left out: it is not a record file");
        for (const tagStream& aStream : aRecording.vecStreams) {
            setFound.insert(aStream.Name());
            if (IsPacked(aOptions, setWanted, aStream, strDirectory))
                AddSource(aPacking, mapSeen, aNotes, aStream, strDirectory);
        }
        if (aRecording.dwFileVersion)
            aHeader = {*aRecording.dwFileVersion, *aRecording.dwCBTimeStamp};
    }
    RequireWanted(setWanted, setFound);
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
        return Print("packed " + Grouped(aPacking.vecSources.size()) +
                     (aPacking.vecSources.size() == 1 ? " stream, " : " streams, ") +
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
    const std::filesystem::path aOutput = System::NativePath(aOptions.strOutput);
    CPackNotes aNotes(aOutput);
    const tagPacking aPacking = Collect(aOptions, aNotes);
    RequireSafeOutput(aOptions, aPacking);
    RequireFree(aNotes.GetFile(), aOptions.bForce);
    RemoveAbandoned(aOutput);
    CPartialName aPartial(aOutput);
    WriteContainer(aPacking, aPartial);
    if (aOptions.bVerify) VerifyContainer(aPacking, aPartial.GetPath());
    GiveName(aPartial.GetPath(), aOutput, aOptions.bForce);
    aNotes.Write(aPacking.aHeader.has_value());
    PrintResult(aOptions, aPacking);
    FinishOutput();
    return aNotes.HasDamage() ? Exit_Damage : Exit_Done;
}
