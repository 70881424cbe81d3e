#include <algorithm>
#include <optional>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Player.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

constexpr CmUint32 c_dwBlock = 262144;
constexpr int c_nFollowInterval = 100;  // milliseconds

/// The end of the requested part of the stream, at most qwEnd.
std::uint64_t FindEnd(const tagPlayOptions& aOptions, std::uint64_t qwEnd) {
    if (!aOptions.qwLength || aOptions.qwOffset >= qwEnd) return qwEnd;
    return aOptions.qwOffset + std::min(*aOptions.qwLength, qwEnd - aOptions.qwOffset);
}

std::uint64_t FindPlayableEnd(const tagPlayOptions& aOptions, std::uint64_t qwPresent) {
    return FindEnd(aOptions, std::min(qwPresent, c_qwPlayable));
}

/// Ends early if the reader of standard output has closed it.
void PlayPart(CPlayer& aPlayer, const tagFileDescriber& aStream, std::uint64_t qwAt,
              std::uint64_t qwEnd) {
    for (; qwAt < qwEnd && !IsOutputClosed(); qwAt += aPlayer.GetLength()) {
        if (System::IsInterrupted()) throw Interrupted();
        const auto dwPart = static_cast<CmUint32>(std::min<std::uint64_t>(c_dwBlock, qwEnd - qwAt));
        const CmInt32 lResult = aPlayer.Read(aStream, qwAt, dwPart);
        if (lResult != CACHE_OK)
            throw CFailure(ResultText("cannot read " + StreamName(aStream), lResult));
        if (aPlayer.GetLength() == 0) throw CFailure(StreamName(aStream) + " has become shorter");
        Print({reinterpret_cast<const char*>(aPlayer.GetData()), aPlayer.GetLength()});
    }
}

/// Plays what is recorded until no recorder has the directory locked. Returns how many bytes the
/// stream has then.
std::uint64_t Follow(const tagPlayOptions& aOptions, const tagFileDescriber& aStream,
                     CPlayer& aPlayer) {
    const std::filesystem::path aDirectory = System::NativePath(aOptions.strPath);
    std::vector<bool> vecNone;
    std::error_code aError;
    std::uint64_t qwAt = aOptions.qwOffset;
    for (;;) {
        // Looked at before the size, so that the last bytes of the recorder are not missed.
        const bool bHeld = System::CFileLock::IsHeld(aDirectory / c_szRecordingLock);
        const std::uint64_t qwSize =
            std::filesystem::file_size(aDirectory / StreamFileName(aStream), aError);
        if (aError) throw CFailure("cannot read " + StreamName(aStream) + ": " + aError.message());
        const std::uint64_t qwEnd = FindPlayableEnd(aOptions, qwSize);
        PlayPart(aPlayer, aStream, qwAt, qwEnd);
        FinishOutput();
        qwAt = std::max(qwAt, qwEnd);
        const bool bAll = aOptions.qwLength && qwAt - aOptions.qwOffset >= *aOptions.qwLength;
        if (!bHeld || bAll || IsOutputClosed() || qwSize >= c_qwPlayable) return qwSize;
        System::WaitForInputs({}, -1, c_nFollowInterval, vecNone);
        if (System::IsInterrupted()) throw Interrupted();
    }
}

}  // namespace

int Play(const tagPlayOptions& aOptions) {
    const tagFileDescriber aWanted = RequireStream(aOptions.strStream);
    const tagRecording aRecording = RequireRecording(aOptions.strPath);
    const tagStream* const pStream = aRecording.Find(aWanted);
    if (!pStream)
        throw CFailure(Printable(aOptions.strPath) + " has no stream " + StreamName(aWanted));
    if (pStream->lpUnreachable)
        throw CFailure(StreamName(aWanted) + " cannot be played: it is " + pStream->lpUnreachable +
                       " (see `cachefile extract`)");
    if (aOptions.bFollow && aRecording.IsContainer())
        throw CFailure("--follow: " + Printable(aOptions.strPath) + " is not a recording directory",
                       Exit_Usage);
    WarnOfSize(aWanted, pStream->qwPresent);
    CPlayer aPlayer(aRecording, &pStream->aDescriber);
    std::uint64_t qwPresent = pStream->qwPresent;
    if (aOptions.bFollow)
        qwPresent = Follow(aOptions, aWanted, aPlayer);
    else
        PlayPart(aPlayer, aWanted, aOptions.qwOffset, FindPlayableEnd(aOptions, qwPresent));
    if (IsOutputClosed()) return Exit_Done;
    if (FindEnd(aOptions, qwPresent) > c_qwPlayable)
        throw CFailure(StreamName(aWanted) + " cannot be played past its first 4 GiB");
    FinishOutput();
    return ReportDamage(aRecording);
}
