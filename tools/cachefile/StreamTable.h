#pragma once

#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Recording.h"

/// The streams of a recording, one a line.
void PrintStreams(const tagRecording& aRecording);
Json StreamsToJson(const tagRecording& aRecording);

/// A value that may not be known.
template <class T>
Json Known(const std::optional<T>& aValue) {
    return aValue ? Json(*aValue) : Json(nullptr);
}
