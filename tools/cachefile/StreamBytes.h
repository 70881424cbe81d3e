#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "tools/cachefile/Recording.h"

// Reading the bytes of streams in blocks. Functions return how many bytes were read: all of them,
// or those before the first that is missing or cannot be read, which is warned of. They throw
// Interrupted, and what aTake throws.

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
