#include "tools/cachefile/Selection.h"

#include "tools/cachefile/Exit.h"
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

std::uint64_t CountBytes(const Selection& vecSelected) {
    std::uint64_t qwBytes = 0;
    for (const tagStream* pStream : vecSelected) qwBytes += pStream->qwPresent;
    return qwBytes;
}

void RequireReasonableSize(const Selection& vecSelected, const tagRecording& aRecording,
                           bool bAllowOverlap) {
    const std::uint64_t qwBytes = CountBytes(vecSelected);
    if (qwBytes <= aRecording.qwSize || bAllowOverlap) return;
    throw CFailure("the streams overlap: together they have " + Grouped(qwBytes) + " bytes, but " +
                   Printable(aRecording.strPath) + " has " + Grouped(aRecording.qwSize) +
                   " (use `--allow-overlap` to read them all)");
}

void RequireFewFiles(std::uint64_t qwFiles, std::uint64_t qwMaxFiles, const std::string& strPath) {
    if (qwFiles > qwMaxFiles)
        throw CFailure(Printable(strPath) + " has " + Grouped(qwFiles) + " streams: more than " +
                       Grouped(qwMaxFiles) + " files are made only with `--max-files`");
}
