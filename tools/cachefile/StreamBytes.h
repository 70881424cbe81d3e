#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "tools/cachefile/Recording.h"

// Reading the bytes of streams in blocks. Functions return how many bytes they have read. If a byte
// is missing or cannot be read, they warn and return the number of bytes before it. They throw
// Interrupted. Exceptions of aTake propagate.

/// Receives one block after another.
using TakeBytes = std::function<void(const unsigned char* lpData, std::size_t nLength)>;

/// Reads a part of a container. strName is the name of the stream for warnings.
std::uint64_t ReadPart(CContainerIndex& aIndex, std::uint64_t qwOffset, std::uint64_t qwLength,
                       const std::string& strName, const TakeBytes& aTake);

/// Reads a file up to its end or up to qwLength bytes.
std::uint64_t ReadFile(const std::filesystem::path& aPath, std::uint64_t qwLength,
                       const TakeBytes& aTake);

/// Reads the bytes that a recording has of one of its streams.
std::uint64_t ReadStream(const tagRecording& aRecording, const tagStream& aStream,
                         const TakeBytes& aTake);
