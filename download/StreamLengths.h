#pragma once

#include <vector>

#include "download/ContainerFormat.h"
#include "fileop/FileOperation.h"

namespace cachefile_internal {

/// Finds the lengths of a container's streams for the play handler.
///
/// It reads the index again as far as the open did: dwEntriesRead entries. vecLengths then has one
/// length for each known entry in the order of the index; entries of a circle are in it once. It
/// takes about twice as long as the first walk, and 33 bytes per entry while it works. Called on
/// the thread that reads the file. On failure vecLengths is unchanged. Returns the code of the
/// read, 4002 if entries that the open found are missing now, or 4011.
CmInt32 ReadStreamLengths(IFileOperation& aFile, const tagQXFFileHeader& aHeader,
                          CmUint32 dwEntriesRead, std::vector<CmUint32>& vecLengths);

}  // namespace cachefile_internal

using cachefile_internal::ReadStreamLengths;
