#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/DataInfo.h"
#include "platform/CmTypes.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Progress.h"

// Packing the record files of directories into a container.

struct tagPackSource {
    tagFileDescriber aDescriber;
    tagFileDescriber aPacked;  // its name in the container
    std::string strDirectory;
    std::uint64_t qwSize;
    std::string strChecksum;  ///< of the file in the notes of its directory, or empty
    bool bGrows = false;      ///< it is being recorded; its first qwSize bytes are packed
};

/// The fields to set in the header of the conf stream.
struct tagPackHeader {
    CmUint32 dwFileVersion;
    CmUint32 dwCBTimeStamp;
};

struct tagPacking {
    std::vector<tagPackSource> vecSources;
    std::optional<tagPackHeader> aHeader;
    CmUint32 dwIndexType = 0;
    ProgressMode aProgress = ProgressMode::Auto;

    std::uint64_t CountBytes() const;
};

/// Writes the container to the partial name. Throws CFailure; Interrupted when the process is
/// interrupted.
void WriteContainer(const tagPacking& aPacking, const CPartialName& aPartial);

/// Reads the container back through the play handler and compares every stream with its file.
/// Compares each file with its checksum too. Throws CFailure at the first difference, and
/// Interrupted.
void VerifyContainer(const tagPacking& aPacking, const std::filesystem::path& aPath);
