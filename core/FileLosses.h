#pragma once

#include <cstdint>
#include <vector>

/// A place in a file where bytes are missing, and their number.
///
/// Which offset it is depends on how the bytes were lost:
/// - A failed append (bInPlace 0) was truncated. qwOffset is where its first byte would be. Later
///   appends begin at that offset, so the following bytes have moved up by qwLength. Gathered bytes
///   that were dropped count as such an append. If writes of the file were still pending when they
///   were dropped, the offset counts these as written, and it is corrected if they fail. Appends
///   through another handle of the same file are not taken into account.
/// - After a failed write at an offset (bInPlace not 0) the qwLength bytes from qwOffset on may be
///   the old ones or the new ones.
/// - After a failed sync (bInPlace not 0) the bytes are written, but may not be on the disk. A
///   read may return them until the machine stops. Every byte since the last successful sync of
///   the file is counted.
struct tagFileHole {
    std::uint64_t qwOffset;
    std::uint64_t qwLength;
    int bInPlace;
};

/// What became of the bytes of an open file (CWriteFileHandler::GetFileLosses).
struct tagFileLosses {
    /// Lost after the call that took them had returned 0. The sum over all files of the process,
    /// closed ones included, is CCacheFileManager::GetLostBytes.
    std::uint64_t qwLost = 0;
    std::uint64_t qwPending = 0;   ///< the file's part of CCacheFileManager::GetPendingBytes
    std::uint64_t qwUnsynced = 0;  ///< the file's part of CCacheFileManager::GetUnsyncedBytes
    /// Sorted by offset. Adjacent holes are merged, and so are those of appends at one offset and
    /// overlapping ones in place. So bytes that were lost twice, for example when a header was
    /// written again, count twice in qwLost and once here.
    std::vector<tagFileHole> vecHoles;
    /// Non-zero if vecHoles contains all lost bytes. At most 1,024 holes of a file are kept; bytes
    /// that are lost later count in qwLost, and extend adjacent holes.
    int bAllHoles = 1;
};
