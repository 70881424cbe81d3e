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

/// The end of the requested part of the stream, at most qwEnd.
std::uint64_t FindEnd(const tagPlayOptions& aOptions, std::uint64_t qwEnd) {
    if (!aOptions.qwLength || aOptions.qwOffset >= qwEnd) return qwEnd;
    return aOptions.qwOffset + std::min(*aOptions.qwLength, qwEnd - aOptions.qwOffset);
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
    WarnOfSize(aWanted, pStream->qwPresent);
    CPlayer aPlayer(aRecording, &pStream->aDescriber);
    const std::uint64_t qwEnd = FindEnd(aOptions, std::min(pStream->qwPresent, c_qwPlayable));
    for (std::uint64_t qwAt = aOptions.qwOffset; qwAt < qwEnd; qwAt += aPlayer.GetLength()) {
        if (System::IsInterrupted()) throw Interrupted();
        const auto dwPart = static_cast<CmUint32>(std::min<std::uint64_t>(c_dwBlock, qwEnd - qwAt));
        const CmInt32 lResult = aPlayer.Read(pStream->aDescriber, qwAt, dwPart);
        if (lResult != CACHE_OK)
            throw CFailure(ResultText("cannot read " + StreamName(aWanted), lResult));
        if (aPlayer.GetLength() == 0) throw CFailure(StreamName(aWanted) + " has become shorter");
        if (IsOutputClosed()) return Exit_Done;
        Print({reinterpret_cast<const char*>(aPlayer.GetData()), aPlayer.GetLength()});
    }
    if (FindEnd(aOptions, pStream->qwPresent) > c_qwPlayable)
        throw CFailure(StreamName(aWanted) + " cannot be played past its first 4 GiB");
    FinishOutput();
    return ReportDamage(aRecording);
}
