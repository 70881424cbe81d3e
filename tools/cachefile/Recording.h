#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "download/ContainerIndex.h"

/// The file of a recording directory whose lock shows that a recorder is at work there.
constexpr char c_szRecordingLock[] = "recording.lock";

/// One stream of a recording: an entry of a container's index, or a record file of a directory.
struct tagStream {
    tagFileDescriber aDescriber{};
    bool bKnown = false;                ///< the describer is one: the tag is known
    std::optional<std::uint16_t> wTag;  ///< a directory's stream may have none
    CmUint32 dwExtraInfo = 0;
    std::uint64_t qwEntryOffset = 0;  ///< container only, as the following
    std::uint64_t qwOffset = 0;       ///< where the data begin
    std::uint64_t qwExtent = 0;       ///< derived: up to what begins next, or the end
    std::uint64_t qwPresent = 0;      ///< how many of these bytes the file really has
    std::size_t nHiddenBy = 0;        ///< number of the earlier entry that is meant, or 0
    const char* lpBarred = nullptr;   ///< what else keeps a player from it

    bool IsReachable() const { return bKnown && nHiddenBy == 0 && !lpBarred; }
    std::string Name() const;  ///< TYPE:ID:KIND, or "?" for an unknown tag
};

/// What is known of a recording without reading its streams.
struct tagRecording {
    std::string strPath;                      ///< as it was given
    std::shared_ptr<CContainerIndex> pIndex;  ///< null for a directory
    CmInt32 lIndexResult = 0;                 ///< what the walk of the index ended with
    std::uint64_t qwSize = 0;                 ///< of the container, or of all record files
    std::optional<CmUint32> dwFileVersion;
    std::optional<CmUint32> dwCBTimeStamp;
    std::vector<tagStream> vecStreams;  ///< in the order of the index; of a directory, sorted
    std::vector<std::string>
        vecOtherFiles;  ///< of a directory: what is not named like a record file
    std::vector<std::string>
        vecNotFiles;  ///< of a directory: what is named like one, but is no file

    bool IsContainer() const { return pIndex != nullptr; }
    /// The first stream with exactly this type, id and kind, or null.
    const tagStream* Find(const tagFileDescriber& aDescriber) const;
};

/// Reads what there is to know: header and index of a container, names and sizes of a directory.
/// Throws CFailure when the path can't be read. A file that is no container has no streams, and
/// its lIndexResult tells; RequireContainer turns that into a failure.
tagRecording LoadRecording(const std::string& strPath);
tagRecording LoadDirectory(const std::string& strPath);

/// The recording of a path that has to hold streams: a directory, or a file with a good header.
tagRecording RequireRecording(const std::string& strPath);
/// The same for a path that has to be a container.
tagRecording RequireContainer(const std::string& strPath);
