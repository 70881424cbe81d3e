#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "tools/cachefile/Sources.h"

// The status of a recording while it is made: a small file in its directory that other processes
// may read. It is replaced as a whole, so nobody reads a part of it. It is not synced, since it is
// of no use after the recorder has ended. docs/cli.md describes the fields.

/// Bytes of a stream, or of all.
struct tagStatusBytes {
    std::uint64_t qwPending = 0;  ///< accepted but not yet written
    std::uint64_t qwLost = 0;
};

struct tagStatus {
    tagStatusBytes aTotal;
    std::map<std::string, tagStatusBytes> mapStreams;  ///< by TYPE:ID:KIND; others have none

    tagStatusBytes Find(const std::string& strStream) const;
};

/// Writes the status of a recording.
///
/// A part of the recording owns it, inside the lock of the directory, and refers to the sources.
/// One thread uses it. If the file cannot be written it is removed, so that nobody reads an old
/// one, and written again a second later.
class CStatusFile {
 public:
    CStatusFile(const std::filesystem::path& aDirectory, const Sources& vecSources);
    /// Removes the file.
    ~CStatusFile();
    CStatusFile(const CStatusFile&) = delete;
    CStatusFile& operator=(const CStatusFile&) = delete;

    /// Call it at least once a second. Writes the file if a second has passed since the last time
    /// and the status has changed.
    void Update();

    static constexpr int c_nInterval = 1000;  // milliseconds

 private:
    std::string Describe() const;
    bool Write(const std::string& strText) const;

    const std::filesystem::path m_file;
    const std::filesystem::path m_newFile;
    const Sources& m_vecSources;
    std::chrono::steady_clock::time_point m_next{};
    std::string m_strWritten;
};

/// Reads the status of a directory that is being recorded, or nothing if there is none that can be
/// read.
std::optional<tagStatus> LoadStatus(const std::filesystem::path& aDirectory);
