#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/DataInfo.h"

// The two names of a stream: TYPE:ID:KIND on the command line, TYPE_ID-KIND.dat in a recording
// directory. All numbers are decimal.

std::string StreamName(const tagFileDescriber& aDescriber);
std::string StreamFileName(const tagFileDescriber& aDescriber);

/// Returns nothing if the name is not of this form.
std::optional<tagFileDescriber> ParseStreamName(const std::string& strName);
/// Also returns nothing if StreamFileName gives another name (leading zeros).
std::optional<tagFileDescriber> ParseStreamFileName(const std::string& strName);

/// Parses a name that the user wrote. Throws CFailure (bad usage) if it is not of this form.
tagFileDescriber RequireStream(const std::string& strName);

/// Offsets have 32 bits, so bytes of a stream from here on cannot be played.
constexpr std::uint64_t c_qwPlayable = std::uint64_t{1} << 32;

/// The reason why no container can hold a stream of this size, or an empty text.
std::string PackFault(const tagFileDescriber& aDescriber, std::uint64_t qwSize);

/// Warns if a stream is too large to be packed and played completely.
void WarnOfSize(const tagFileDescriber& aDescriber, std::uint64_t qwSize);

/// A request for the data of a stream.
inline tagDataInfo RequestFor(const tagFileDescriber& aDescriber) {
    return {aDescriber.wDataType, aDescriber.dwFileID, 0, aDescriber.byFileType};
}
