#include <iostream>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Findings.h"
#include "tools/cachefile/JsonDocument.h"

// Reads paths of containers from standard input, one per line. Loads and checks each container like
// the command line and prints one line of JSON, which agreement.py compares.

namespace {

Json Known(const std::optional<CmUint32>& dwValue) { return dwValue ? Json(*dwValue) : Json(); }

Json Streams(const tagRecording& aRecording) {
    Json aStreams = Json::array();
    for (const tagStream& aStream : aRecording.vecStreams)
        if (aStream.bKnown)
            aStreams.push_back({aStream.Name(), aStream.dwExtraInfo, aStream.qwOffset,
                                aStream.qwExtent, aStream.qwPresent, aStream.nHiddenBy});
    return aStreams;
}

Json Findings(const tagRecording& aRecording) {
    Json aFindings = Json::array();
    for (const tagFinding& aFinding : Examine(aRecording, c_qwAllOfACode).vecFindings)
        aFindings.push_back({SeverityName(aFinding.aSeverity), aFinding.lpCode, aFinding.qwOffset});
    return aFindings;
}

Json Look(const std::string& strPath) {
    const tagRecording aRecording = LoadRecording(strPath);
    return {{"streams", Streams(aRecording)},
            {"findings", Findings(aRecording)},
            {"version", Known(aRecording.dwFileVersion)},
            {"stamp", Known(aRecording.dwCBTimeStamp)}};
}

}  // namespace

int main() try {
    for (std::string strPath; std::getline(std::cin, strPath);) std::cout << Look(strPath) << '\n';
    return 0;
} catch (const CFailure& aFailure) {
    std::cerr << aFailure.what() << '\n';
    return 1;
}
