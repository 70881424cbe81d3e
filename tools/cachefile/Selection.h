#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/cachefile/Recording.h"

/// Streams of a recording, which must outlive it.
using Selection = std::vector<const tagStream*>;

/// Every stream of a recording that no earlier entry hides. Warns of what is left out, and then
/// sets bLeftOut. Nothing is left out of a directory.
Selection SelectAll(const tagRecording& aRecording, bool& bLeftOut);

/// Streams of a good container share no bytes. A malicious container can have a short index whose
/// streams need very much disk space and time. Throws CFailure if the streams have more bytes than
/// the recording, unless bAllowOverlap is true.
void RequireReasonableSize(const Selection& vecSelected, const tagRecording& aRecording,
                           bool bAllowOverlap);

/// A short index may also name very many empty streams. Throws CFailure if there are more files
/// than qwMaxFiles, which --max-files sets.
void RequireFewFiles(std::uint64_t qwFiles, std::uint64_t qwMaxFiles, const std::string& strPath);

/// The bytes that a recording has of the streams.
std::uint64_t CountBytes(const Selection& vecSelected);

/// No byte of a stream can be extracted if the file ends before it starts.
inline bool CanExtract(const tagStream& aStream, const tagRecording& aRecording) {
    return aStream.qwPresent > 0 || aStream.qwOffset <= aRecording.qwSize;
}
