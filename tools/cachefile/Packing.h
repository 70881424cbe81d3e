#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/DataInfo.h"
#include "platform/CmTypes.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Progress.h"

/// The record files of some directories on their way into a container.

struct tagPackSource {
    tagFileDescriber aDescriber;
    std::string strDirectory;
    std::uint64_t qwSize;
};

/// What the container is to say of itself, if it isn't as the conf stream has it.
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

/// Writes the container to the partial name. Throws CFailure. An interrupt ends the process after
/// the partial files are removed.
void WriteContainer(const tagPacking& aPacking, CPartialName& aPartial);

/// Reads the container back through the play handler and compares every stream with its file.
/// Throws CFailure at the first difference.
void VerifyContainer(const tagPacking& aPacking, const std::filesystem::path& aPath);
