#pragma once

#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Recording.h"

/// Whether a player can read the stream, or why not: the state in the table.
std::string StateText(const tagStream& aStream);

/// Prints the streams of a recording, one per line.
void PrintStreams(const tagRecording& aRecording);

/// Warns of files that are not record files and of streams that are too large.
void WarnOfStreams(const tagRecording& aRecording);

/// Prints the document with the streams as its last field.
void PrintWithStreams(Json aDocument, const tagRecording& aRecording);

/// The value, or null if it is unknown.
template <class T>
Json Known(const std::optional<T>& aValue) {
    return aValue ? Json(*aValue) : Json(nullptr);
}
