#pragma once

#include <vector>

#include "download/ContainerFormat.h"
#include "fileop/FileOperation.h"

/// The lengths of a container's streams, for the play handler: how far each may be read.
///
/// It walks the index again, as far as the open did: dwEntriesRead entries. vecLengths then has the
/// length for each known entry in the order of the index, once also if the index goes in a circle.
/// Takes as much time as the walk and 33 bytes for an entry while it works. On the thread that
/// reads the file. On failure vecLengths stays as it was; the code is that of the read, 4002 if
/// entries are missing that the open found, or 4011.
CmInt32 ReadStreamLengths(IFileOperation& aFile, const tagQXFFileHeader& aHeader,
                          CmUint32 dwEntriesRead, std::vector<CmUint32>& vecLengths);
