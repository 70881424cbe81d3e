#include <algorithm>
#include <filesystem>
#include <optional>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/RecordingLock.h"
#include "tools/cachefile/RecoveryOutput.h"
#include "tools/cachefile/Selection.h"
#include "tools/cachefile/ShownNotes.h"
#include "tools/cachefile/System.h"

namespace {

const char* FinderName(tagPiece::Finder aFinder) {
    static const char* const s_aNames[] = {"index", "search", "checksum", "-"};
    return s_aNames[aFinder];
}

Style StyleOf(tagPiece::State aState) {
    if (aState == tagPiece::Verified) return Style::Green;
    return aState == tagPiece::Unverified ? Style::Plain : Style::Red;
}

bool IsLost(const tagPiece& aPiece) {
    return aPiece.aState == tagPiece::Damaged || aPiece.aState == tagPiece::Missing;
}

/// The bytes of a piece that are in the output.
std::uint64_t Recovered(const tagPiece& aPiece) {
    return aPiece.aState == tagPiece::Missing ? 0 : aPiece.qwPresent;
}

void PrintText(const tagRecovery& aRecovery) {
    CTable aTable({{"STREAM", CTable::Left},
                   {"FILE", CTable::Left},
                   {"BYTES", CTable::Right},
                   {"MISSING", CTable::Right},
                   {"STATE", CTable::Left},
                   {"FOUND BY", CTable::Left}});
    {
        const CWarningLimit aLimit;
        for (const tagPiece& a : aRecovery.vecPieces)
            for (const std::string& strFault : a.vecFaults) Warn(a.Name() + ": " + strFault);
    }
    aTable.PrintRows(aRecovery.vecPieces.size(), [&](std::size_t i, auto aTake) {
        const tagPiece& a = aRecovery.vecPieces[i];
        const bool bMissing = a.aState == tagPiece::Missing;
        aTake({a.Name(), bMissing ? "-" : a.strFile.c_str(), std::to_string(Recovered(a)),
               std::to_string(a.qwMissing),
               CTable::Cell(PieceStateName(a.aState), StyleOf(a.aState)), FinderName(a.aFinder)});
    });
}

void PrintJson(const tagRecoverOptions& aOptions, const tagRecovery& aRecovery) {
    Json aDocument = NewDocument("recover");
    aDocument["path"] = aOptions.strPath;
    aDocument["output"] = aOptions.strOutput;
    aDocument["kind"] = aOptions.bContainer ? "container" : "directory";
    aDocument["losses"] = aRecovery.vecLosses;
    PrintDocument(aDocument, "streams", aRecovery.vecPieces.size(), [&](std::size_t i) {
        const tagPiece& a = aRecovery.vecPieces[i];
        const bool bFile = a.aState != tagPiece::Missing && !aOptions.bContainer;
        return Json{{"stream", a.Name()},
                    {"file", bFile ? Json(a.strFile) : Json(nullptr)},
                    {"bytes", Recovered(a)},
                    {"missing_bytes", a.qwMissing},
                    {"state", PieceStateName(a.aState)},
                    {"found_by",
                     a.aFinder == tagPiece::NotFound ? Json(nullptr) : Json(FinderName(a.aFinder))},
                    {"reasons", a.vecFaults}};
    });
}

void RequireNew(const std::filesystem::path& aPath) {
    std::error_code aIgnored;
    if (std::filesystem::exists(std::filesystem::symlink_status(aPath, aIgnored)))
        throw CFailure(Printable(aPath.u8string()) +
                       " already exists (`recover` overwrites nothing)");
}

/// Keeps recorders away while the record files are read. Does nothing if no recorder has locked the
/// directory before.
void LockAgainstRecorders(const tagRecoverOptions& aOptions,
                          std::optional<System::CFileLock>& aLock) {
    const std::filesystem::path aDirectory = System::NativePath(aOptions.strPath);
    std::error_code aIgnored;
    if (!std::filesystem::exists(aDirectory / c_szRecordingLock, aIgnored)) return;
    if (TakeRecordingLock(aDirectory, aLock) == System::CFileLock::Held)
        throw CFailure(Printable(aOptions.strPath) + " is being recorded");
}

std::uint64_t CountFiles(const tagRecovery& aRecovery) {
    return static_cast<std::uint64_t>(
        std::count_if(aRecovery.vecPieces.begin(), aRecovery.vecPieces.end(),
                      [](const tagPiece& a) { return a.aState != tagPiece::Missing; }));
}

int Report(const tagRecoverOptions& aOptions, const tagRecovery& aRecovery) {
    if (aOptions.bJson)
        PrintJson(aOptions, aRecovery);
    else
        PrintText(aRecovery);
    FinishOutput();
    for (const std::string& strLoss : aRecovery.vecLosses)
        Warn(Printable(aOptions.strPath) + ": " + strLoss);
    const bool bLost = std::any_of(aRecovery.vecPieces.begin(), aRecovery.vecPieces.end(), IsLost);
    return bLost || !aRecovery.vecLosses.empty() ? Exit_Damage : Exit_Done;
}

}  // namespace

int Recover(const tagRecoverOptions& aOptions) {
    const std::filesystem::path aOutput = System::NativePath(aOptions.strOutput);
    RequireNew(aOutput);
    if (aOptions.bContainer) RequireNew(NotesOfContainer(aOutput));
    const tagRecording aRecording = LoadRecording(aOptions.strPath);
    std::optional<System::CFileLock> aLock;
    if (!aRecording.IsContainer()) LockAgainstRecorders(aOptions, aLock);
    const tagNotes aNotes = tagShownNotes(aRecording).aNotes;
    const NotedStreams mapKnown =
        aOptions.strKnown.empty() ? aNotes.mapStreams : LoadStreams(aOptions.strKnown);
    tagRecovery aRecovery;
    {
        const CWarningLimit aLimit;
        aRecovery = aRecording.IsContainer() ? RecoverContainer(aRecording, mapKnown)
                                             : RecoverDirectory(aRecording, mapKnown);
        if (!aRecording.IsContainer() && aNotes.aState == tagNotes::Open)
            aRecovery.vecLosses.push_back(
                "it was not closed: the ends of its streams may be missing");
        RequireFewFiles(CountFiles(aRecovery), aOptions.qwMaxFiles, aOptions.strPath);
        WriteRecovery(aRecording, aNotes, aRecovery, aOutput, aOptions.bContainer,
                      aOptions.aProgress);
    }
    return Report(aOptions, aRecovery);
}
