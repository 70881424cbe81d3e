#pragma once

#include <vector>

#include "tools/cachefile/Recording.h"

/// Streams of a recording, which must outlive it.
using Selection = std::vector<const tagStream*>;

/// Every stream of a recording that no earlier entry hides. Warns of what is left out, and then
/// sets bLeftOut. Nothing is left out of a directory.
Selection SelectAll(const tagRecording& aRecording, bool& bLeftOut);

/// No byte of a stream can be extracted if the file ends before it starts.
inline bool CanExtract(const tagStream& aStream, const tagRecording& aRecording) {
    return aStream.qwPresent > 0 || aStream.qwOffset <= aRecording.qwSize;
}
