#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/DataInfo.h"

/// The two names of a stream: on the command line TYPE:ID:KIND, in a recording directory
/// TYPE_ID-KIND.dat, all decimal.

std::string StreamName(const tagFileDescriber& aDescriber);
std::string StreamFileName(const tagFileDescriber& aDescriber);

/// Nothing when it is no such name.
std::optional<tagFileDescriber> ParseStreamName(const std::string& strName);
/// Nothing too when StreamFileName would write it otherwise (leading zeros).
std::optional<tagFileDescriber> ParseStreamFileName(const std::string& strName);

/// The stream that a user names; throws CFailure (bad usage) when it is none.
tagFileDescriber RequireStream(const std::string& strName);

/// Offsets are 32 bits wide: bytes of a stream from here on cannot be played.
constexpr std::uint64_t c_qwPlayable = std::uint64_t{1} << 32;

/// Why no container can hold a stream of this size, or an empty text.
std::string PackFault(const tagFileDescriber& aDescriber, std::uint64_t qwSize);

/// Warns of a stream that is too large to be packed and played.
void WarnOfSize(const tagFileDescriber& aDescriber, std::uint64_t qwSize);

/// A request for the data of a stream.
inline tagDataInfo RequestFor(const tagFileDescriber& aDescriber) {
    return {aDescriber.wDataType, aDescriber.dwFileID, 0, aDescriber.byFileType};
}
