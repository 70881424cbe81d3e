#pragma once

#include <cstdint>
#include <vector>

/// A place of a file where bytes are missing, and their number.
///
/// Which offset it is depends on how the bytes were lost:
/// - An append that failed (bInPlace 0) was cut off again. qwOffset is where its first byte would
///   be. What was appended later begins at that offset, so the following bytes have moved up by
///   qwLength. Gathered bytes that were dropped count as such an append. If writes of the file were
///   still pending when they were dropped, the offset counts these as written, and it is corrected
///   if they fail. Appends through another handle of the same file are not foreseen.
/// - A write at an offset that failed (bInPlace not 0) has its place: the qwLength bytes from
///   qwOffset on may be the old ones or the new ones.
/// - A sync that failed (bInPlace not 0): the bytes were written, but may not be on the disk. A
///   read may return them until the machine stops. Every byte since the last good sync of the file
///   is counted.
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
    /// Sorted by offset. Holes that touch are one, and so are those of appends at one offset.
    std::vector<tagFileHole> vecHoles;
    /// Non-zero if vecHoles shows all of qwLost. At most 1,024 holes of a file are kept; bytes that
    /// are lost after that count in qwLost, and extend holes that they touch.
    int bAllHoles = 1;
};
