#include "tools/cachefile/RecoveryOutput.h"

#include <cerrno>
#include <cstring>
#include <limits>

#include "tools/cachefile/Checksum.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Packing.h"
#include "tools/cachefile/RecoveryNotes.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::uint64_t c_qwWholeFile = std::numeric_limits<std::uint64_t>::max();

[[noreturn]] void ThrowWriting(const std::filesystem::path& aPath) {
    throw CFailure("cannot write " + Printable(aPath.u8string()) + ": " + std::strerror(errno));
}

std::uint64_t CountBytes(const tagRecovery& aRecovery) {
    std::uint64_t qwBytes = 0;
    for (const tagPiece& aPiece : aRecovery.vecPieces)
        if (aPiece.aState != tagPiece::Missing) qwBytes += aPiece.qwPresent;
    return qwBytes;
}

/// Writes the pieces as files of a directory and compares them.
class CPieceWriter {
 public:
    CPieceWriter(const tagRecording& aRecording, const std::filesystem::path& aDirectory,
                 CProgress& aProgress)
        : m_recording(aRecording), m_directory(aDirectory), m_progress(aProgress) {}

    void Write(tagPiece& aPiece);

 private:
    std::string WriteFile(tagPiece& aPiece, const std::filesystem::path& aPath);

    const tagRecording& m_recording;
    const std::filesystem::path& m_directory;
    CProgress& m_progress;
    std::uint64_t m_qwDone = 0;
};

/// Returns the checksum of what was read.
std::string CPieceWriter::WriteFile(tagPiece& aPiece, const std::filesystem::path& aPath) {
    System::CNewFile aFile;
    if (!aFile.Create(aPath)) ThrowWriting(aPath);
    CChecksum aChecksum;
    const std::uint64_t qwRead =
        ReadPiece(m_recording, aPiece, [&](const unsigned char* lpData, std::size_t nLength) {
            if (!aFile.Write(lpData, nLength)) ThrowWriting(aPath);
            aChecksum.Add(lpData, nLength);
            m_progress.Show(m_qwDone += nLength);
        });
    if (!aFile.Sync() || !aFile.Close()) ThrowWriting(aPath);
    if (qwRead < aPiece.qwPresent) {
        aPiece.vecFaults.push_back(Grouped(aPiece.qwPresent - qwRead) + " bytes cannot be read");
        aPiece.aState = tagPiece::Damaged;
        aPiece.qwMissing += aPiece.qwPresent - qwRead;
        aPiece.qwPresent = qwRead;
    }
    return aChecksum.GetText();
}

void CPieceWriter::Write(tagPiece& aPiece) {
    const std::filesystem::path aPath = m_directory / aPiece.strFile;
    const std::string strWritten = WriteFile(aPiece, aPath);
    CChecksum aChecksum;
    const std::uint64_t qwRead = ReadFile(
        aPath, c_qwWholeFile,
        [&](const unsigned char* lpData, std::size_t nLength) { aChecksum.Add(lpData, nLength); });
    if (qwRead != aPiece.qwPresent || aChecksum.GetText() != strWritten)
        throw CFailure("verification failed: " + aPiece.strFile +
                       " differs from what was written to it; nothing was recovered");
    if (aPiece.aState != tagPiece::Verified || strWritten == aPiece.strChecksum) return;
    aPiece.vecFaults.push_back("it has changed while it was read");
    aPiece.aState = tagPiece::Damaged;
}

/// Why no container can hold the piece, or an empty text.
std::string Fault(const tagPiece& aPiece) {
    if (aPiece.strFile != StreamFileName(aPiece.aDescriber))
        return "a container can hold only one stream of a name";
    return PackFault(aPiece.aDescriber, aPiece.qwPresent);
}

void LeaveOutUnpackable(tagRecovery& aRecovery) {
    for (tagPiece& aPiece : aRecovery.vecPieces) {
        if (aPiece.aState == tagPiece::Missing) continue;
        const std::string strFault = Fault(aPiece);
        if (strFault.empty()) continue;
        aPiece.vecFaults.push_back(strFault);
        aPiece.aState = tagPiece::Missing;
    }
}

void PackPieces(const tagRecovery& aRecovery, const std::filesystem::path& aDirectory,
                const std::filesystem::path& aOutput, ProgressMode aMode) {
    tagPacking aPacking;
    aPacking.aProgress = aMode;
    for (const tagPiece& aPiece : aRecovery.vecPieces)
        if (aPiece.aState != tagPiece::Missing)
            aPacking.vecSources.push_back(
                {aPiece.aDescriber, aPiece.aDescriber, aDirectory.string(), aPiece.qwPresent, ""});
    CPartialName aPartial(aOutput);
    WriteContainer(aPacking, aPartial);
    VerifyContainer(aPacking, aPartial.GetPath());
    GiveName(aPartial.GetPath(), aOutput, false);
}

void RequireSomething(const tagRecovery& aRecovery) {
    for (const tagPiece& aPiece : aRecovery.vecPieces)
        if (aPiece.aState != tagPiece::Missing) return;
    throw CFailure("no stream can be recovered");
}

}  // namespace

void WriteRecovery(const tagRecording& aRecording, const tagNotes& aNotes, tagRecovery& aRecovery,
                   const std::filesystem::path& aOutput, bool bContainer, ProgressMode aMode) {
    if (bContainer) LeaveOutUnpackable(aRecovery);
    RequireSomething(aRecovery);
    RemoveAbandoned(aOutput);
    CPartialName aPartial(aOutput);
    std::error_code aError;
    if (!std::filesystem::create_directory(aPartial.GetPath(), aError))
        throw CFailure("cannot create the directory " + Printable(aPartial.GetPath().u8string()) +
                       (aError ? ": " + aError.message() : ""));
    {
        CProgress aProgress(aMode, "recover", CountBytes(aRecovery));
        CPieceWriter aWriter(aRecording, aPartial.GetPath(), aProgress);
        for (tagPiece& aPiece : aRecovery.vecPieces)
            if (aPiece.aState != tagPiece::Missing) aWriter.Write(aPiece);
    }
    const Json aDocument = MakeRecoveryNotes(aRecording, aNotes, aRecovery);
    if (bContainer) {
        PackPieces(aRecovery, aPartial.GetPath(), aOutput, aMode);
        return SaveNotes(NotesOfContainer(aOutput), aDocument);
    }
    SaveNotes(NotesOfDirectory(aPartial.GetPath()), aDocument);
    GiveName(aPartial.GetPath(), aOutput, false);
}
