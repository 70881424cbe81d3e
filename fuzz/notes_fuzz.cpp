#include "fuzz/Target.h"
#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Streams.h"

// The tool reads the input as the notes of a recording and as a list of checksums. Every name that
// it takes from them must be that of a stream, because files are named after it.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* lpBytes, std::size_t dwSize) {
    const std::string strText(reinterpret_cast<const char*>(lpBytes), dwSize);
    const auto aCheck = [](const NotedStreams& mapStreams) {
        for (const auto& [strName, aNoted] : mapStreams) {
            const auto aDescriber = ParseStreamName(strName);
            Require(aDescriber && StreamName(*aDescriber) == strName, "it is the name of a stream");
            Require(aNoted.strChecksum.find_first_not_of("0123456789abcdef") == std::string::npos,
                    "a checksum has only digits");
        }
    };
    const tagNotes aNotes = ParseNotes(strText);
    Require((aNotes.aState == tagNotes::Bad) == !aNotes.strFault.empty(), "bad notes have a fault");
    Require(aNotes.aState != tagNotes::Bad || aNotes.mapStreams.empty(), "bad notes are not used");
    aCheck(aNotes.mapStreams);
    for (const auto& [strName, aNoted] : aNotes.mapStreams)
        Require(StreamName(*ParseStreamName(
                    aNotes.FieldsOf(strName).at(Noted::c_szStream).get<std::string>())) == strName,
                "the fields are those of the stream");
    aCheck(ParseStreams(strText));
    return 0;
}
