#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "tools/cachefile/Recording.h"

/// The text after the name of a container that names its description.
constexpr char c_szRecordingJson[] = "recording.json";

/// What was noted of a stream when it was whole.
struct tagKnownStream {
    std::string strChecksum;              ///< 32 hexadecimal digits
    std::optional<std::uint64_t> qwSize;  ///< not all notes have it
};

/// What is known of streams, by the names of their record files.
using KnownStreams = std::map<std::string, tagKnownStream>;

/// Reads a recording.json or the lines that `sums` and xxh128sum write. Ignores what it does not
/// understand, since other versions may add fields. Throws CFailure if the file cannot be read, is
/// too large, or is neither of these.
KnownStreams ReadKnownStreams(const std::string& strPath);

/// Reads strPath, or if that is empty the description of the recording: DIR/recording.json or
/// FILE.recording.json. If there is no description, the result is empty.
KnownStreams FindKnownStreams(const std::string& strRecording, bool bContainer,
                              const std::string& strPath);
