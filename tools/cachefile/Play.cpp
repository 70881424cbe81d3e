#include <algorithm>
#include <optional>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Findings.h"
#include "tools/cachefile/Options.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Player.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

constexpr CmUint32 c_dwBlock = 262144;

struct tagOptions {
    std::string strPath;
    std::string strStream;
    std::uint64_t qwOffset = 0;
    std::optional<std::uint64_t> qwLength;
};

/// Where the wanted part of the stream ends.
std::uint64_t FindEnd(const tagOptions& aOptions, const tagStream& aStream) {
    const std::uint64_t qwEnd = aStream.qwPresent;
    if (!aOptions.qwLength || aOptions.qwOffset >= qwEnd) return qwEnd;
    return aOptions.qwOffset + std::min(*aOptions.qwLength, qwEnd - aOptions.qwOffset);
}

int Play(const tagOptions& aOptions) {
    const tagFileDescriber aWanted = RequireStream(aOptions.strStream);
    const tagRecording aRecording = RequireRecording(aOptions.strPath);
    const tagStream* const pStream = aRecording.Find(aWanted);
    if (!pStream)
        throw CFailure(Printable(aOptions.strPath) + " has no stream " + StreamName(aWanted));
    CPlayer aPlayer(aRecording, &pStream->aDescriber);
    const std::uint64_t qwEnd = FindEnd(aOptions, *pStream);
    for (std::uint64_t qwAt = aOptions.qwOffset; qwAt < qwEnd; qwAt += aPlayer.GetLength()) {
        if (System::IsInterrupted()) throw Interrupted();
        const auto dwPart = static_cast<CmUint32>(std::min<std::uint64_t>(c_dwBlock, qwEnd - qwAt));
        const CmInt32 lResult = aPlayer.Read(pStream->aDescriber, qwAt, dwPart);
        if (lResult != CACHE_OK)
            throw CFailure(ResultText("cannot read " + StreamName(aWanted), lResult));
        if (aPlayer.GetLength() == 0) throw CFailure(StreamName(aWanted) + " has become shorter");
        Print({reinterpret_cast<const char*>(aPlayer.GetData()), aPlayer.GetLength()});
    }
    FinishOutput();
    return ReportDamage(aRecording);
}

}  // namespace

void AddPlay(CLI::App& aTool, int& nExit) {
    const auto pOptions = std::make_shared<tagOptions>();
    CLI::App& aCommand =
        *aTool.add_subcommand("play", "Write the bytes of a stream to standard output");
    Options::AddPath(aCommand, pOptions->strPath, "A recording directory or a container");
    aCommand.add_option("--stream", pOptions->strStream, "The stream, as TYPE:ID:KIND")
        ->required()
        ->type_name("STREAM");
    aCommand.add_option("--offset", pOptions->qwOffset, "Begin so many bytes into the stream")
        ->type_name("BYTES");
    aCommand.add_option("--length", pOptions->qwLength, "Stop after so many bytes")
        ->type_name("BYTES");
    Options::AddExample(aCommand, "cachefile play kvr2/7 --stream 4:7004:4 > voice.raw");
    aCommand.callback([pOptions, &nExit] { nExit = Play(*pOptions); });
}
