#include <set>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/PackNotes.h"
#include "tools/cachefile/Packing.h"
#include "tools/cachefile/Recording.h"
#include "tools/cachefile/Renaming.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

using StreamNames = std::set<std::string>;

/// A stream that no container can hold is an error, or is left out.
bool CanBePacked(const tagPackOptions& aOptions, const tagPackSource& aSource) {
    const std::string strFault = PackFault(aSource.aPacked, aSource.qwSize);
    if (strFault.empty()) return true;
    const std::string strName =
        StreamName(aSource.aPacked) + " of " + Printable(aSource.strDirectory);
    if (!aOptions.bSkipUnpackable)
        throw CFailure("cannot pack " + strName + ": " + strFault +
                       " (use `--skip-unpackable` to leave such streams out)");
    Warn(strName + " is left out: " + strFault);
    return false;
}

/// The notes of a stream get the name that it has in the container.
void AddSource(tagPacking& aPacking, CRenaming& aRenaming, CPackNotes& aNotes,
               tagPackSource aSource) {
    if (!aRenaming.Take(aSource.aPacked, aSource.strDirectory))
        return Warn(StreamName(aSource.aPacked) + " of " + Printable(aSource.strDirectory) +
                    " is left out: a container has only one");
    aSource.strChecksum = aNotes.AddStream(aSource.aDescriber, aSource.aPacked);
    aPacking.vecSources.push_back(aSource);
}

void RequireWanted(const StreamNames& setWanted, const StreamNames& setFound) {
    for (const std::string& strName : setWanted)
        if (setFound.count(strName) == 0)
            throw CFailure("there is no record file of the stream " + strName);
}

/// Adds one directory after another, so that the streams of each are together.
tagPacking Collect(const tagPackOptions& aOptions, CPackNotes& aNotes) {
    tagPacking aPacking;
    StreamNames setWanted, setFound;
    CRenaming aRenaming(aOptions.vecRenames, aOptions.bRenumber);
    for (const std::string& strStream : aOptions.vecStreams)
        setWanted.insert(StreamName(RequireStream(strStream)));
    tagPackHeader aHeader{0, 0};
    for (const std::string& strDirectory : aOptions.vecDirectories) {
        // The recorder may end at any time, so the lock is looked at before the sizes too.
        const bool bHeld = IsBeingRecorded(System::NativePath(strDirectory));
        const tagRecording aRecording = LoadDirectory(strDirectory);
        const bool bGrows = aNotes.AddDirectory(aRecording, bHeld);
        for (const std::string& strName : aRecording.vecOtherFiles)
            Warn(Printable(strDirectory + "/" + strName) + " is left out: it is not a record file");
        for (const tagStream& aStream : aRecording.vecStreams) {
            setFound.insert(aStream.Name());
            if (!setWanted.empty() && setWanted.count(aStream.Name()) == 0) continue;
            const tagPackSource aSource{aStream.aDescriber,
                                        aRenaming.Apply(aStream.aDescriber, strDirectory),
                                        strDirectory,
                                        aStream.qwExtent,
                                        "",
                                        bGrows};
            if (CanBePacked(aOptions, aSource)) AddSource(aPacking, aRenaming, aNotes, aSource);
        }
        if (aRecording.dwFileVersion)
            aHeader = {*aRecording.dwFileVersion, *aRecording.dwCBTimeStamp};
    }
    RequireWanted(setWanted, setFound);
    aRenaming.RequireUsed();
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

void PrintRenamed(const tagPacking& aPacking) {
    for (const tagPackSource& aSource : aPacking.vecSources) {
        const std::string strFrom = StreamName(aSource.aDescriber);
        const std::string strTo = StreamName(aSource.aPacked);
        if (strFrom != strTo)
            Print(Printable(aSource.strDirectory) + "/" + strFrom + " is " + strTo + "\n");
    }
}

void PrintResult(const tagPackOptions& aOptions, const tagPacking& aPacking) {
    if (!aOptions.bJson) {
        PrintRenamed(aPacking);
        return Print("packed " + Grouped(aPacking.vecSources.size()) +
                     (aPacking.vecSources.size() == 1 ? " stream, " : " streams, ") +
                     Grouped(aPacking.CountBytes()) + " bytes" +
                     (aOptions.bVerify ? ", read back and compared" : "") + ": " +
                     Printable(aOptions.strOutput) + "\n");
    }
    Json aDocument = NewDocument("pack");
    aDocument["output"] = aOptions.strOutput;
    aDocument["bytes"] = aPacking.CountBytes();
    aDocument["verified"] = aOptions.bVerify;
    aDocument["streams"] = Json::array();
    for (const tagPackSource& aSource : aPacking.vecSources)
        aDocument["streams"].push_back({{"stream", StreamName(aSource.aPacked)},
                                        {"packed_from", StreamName(aSource.aDescriber)},
                                        {"directory", aSource.strDirectory},
                                        {"bytes", aSource.qwSize},
                                        {"being_recorded", aSource.bGrows}});
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
