#pragma once

#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Recording.h"

/// The streams of a recording, one a line.
void PrintStreams(const tagRecording& aRecording);

/// Warns of what a user of the recording should know of its files and streams.
void WarnOfStreams(const tagRecording& aRecording);

/// The document with them as its last field.
void PrintWithStreams(Json aDocument, const tagRecording& aRecording);

/// A value that may not be known.
template <class T>
Json Known(const std::optional<T>& aValue) {
    return aValue ? Json(*aValue) : Json(nullptr);
}
