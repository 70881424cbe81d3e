#include "tools/cachefile/Selection.h"

#include "tools/cachefile/Output.h"

Selection SelectAll(const tagRecording& aRecording, bool& bLeftOut) {
    Selection vecSelected;
    const std::uint64_t qwEnd = aRecording.IsContainer()
                                    ? aRecording.pIndex->GetFileHeader().dwFileSize
                                    : aRecording.qwSize;
    if (aRecording.qwSize > qwEnd)
        Warn(Grouped(aRecording.qwSize - qwEnd) +
             " bytes after the end given in the header belong to no stream that starts before it");
    bLeftOut = aRecording.qwSize > qwEnd;
    for (const tagStream& aStream : aRecording.vecStreams) {
        const auto nNumber = std::to_string(&aStream - aRecording.vecStreams.data() + 1);
        if (!aStream.bKnown)
            Warn("entry " + nNumber + " is left out: its tag " + std::to_string(*aStream.wTag) +
                 " is unknown");
        else if (aStream.nHiddenBy != 0)
            Warn("entry " + nNumber + " is left out: entry " + std::to_string(aStream.nHiddenBy) +
                 " is for the same stream " + aStream.Name());
        else
            vecSelected.push_back(&aStream);
    }
    bLeftOut = bLeftOut || vecSelected.size() < aRecording.vecStreams.size();
    return vecSelected;
}
