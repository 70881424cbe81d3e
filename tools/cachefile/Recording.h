#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cachefile/RecordedStream.h"

/// The file in a recording directory that a recorder keeps locked while it runs.
constexpr char c_szRecordingLock[] = "recording.lock";

/// The status of a recording that is being made (Status.h), and its name while it is written.
constexpr char c_szStatus[] = "recording.status.json";
constexpr char c_szNewStatus[] = "recording.status.json.new";

/// The properties of a recording, found without reading its streams.
struct tagRecording {
    std::string strPath;                      ///< as the user wrote it
    std::shared_ptr<CContainerIndex> pIndex;  ///< null for a directory
    CmInt32 lIndexResult = 0;                 ///< of CContainerIndex::Open
    std::uint64_t qwSize = 0;                 ///< of the container, or of all record files
    std::optional<CmUint32> dwFileVersion;
    std::optional<CmUint32> dwCBTimeStamp;
    std::vector<tagStream> vecStreams;       ///< in the order of the index; of a directory, sorted
    std::vector<std::string> vecOtherFiles;  ///< of a directory: not named like a record file
    std::vector<std::string> vecNotFiles;    ///< of a directory: named like one, but not a file

    bool IsContainer() const { return pIndex != nullptr; }
    /// The first stream with exactly this type, id and kind, or null.
    const tagStream* Find(const tagFileDescriber& aDescriber) const;
};

/// Reads the header and the index of a container, or the names and sizes of a directory. Throws
/// CFailure if the path cannot be read. A file that is not a container has no streams and an
/// lIndexResult other than 0; RequireContainer throws in that case.
tagRecording LoadRecording(const std::string& strPath);
tagRecording LoadDirectory(const std::string& strPath);

/// The same, but throws CFailure if the path is neither a directory nor a file with a good header.
tagRecording RequireRecording(const std::string& strPath);
/// The same, but throws CFailure if the path is not a container.
tagRecording RequireContainer(const std::string& strPath);
