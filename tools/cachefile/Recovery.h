#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Recording.h"
#include "tools/cachefile/StreamBytes.h"

// What can be recovered of a damaged container, or of a directory that was not closed.

/// A stream of the recording, with the place of its bytes.
struct tagPiece {
    enum State {
        Verified,    ///< its known checksum agrees
        Unverified,  ///< nothing contradicts it
        Damaged,     ///< something contradicts it
        Missing,     ///< it has no bytes that could be recovered, and is not written
    };
    enum Finder {
        ByIndex,     ///< by following the index, or by the name of the record file
        BySearch,    ///< by searching the index area
        ByChecksum,  ///< its bytes were found by their checksum; no entry leads there
        NotFound,    ///< only the notes name it
    };

    std::string Name() const;

    tagFileDescriber aDescriber;
    std::string strFile;         ///< name of the file to write; several streams may have one name
    std::uint64_t qwOffset = 0;  ///< of its bytes in the container
    std::uint64_t qwPresent = 0;
    std::uint64_t qwMissing = 0;
    State aState = Unverified;
    Finder aFinder = ByIndex;
    std::vector<std::string> vecFaults;  ///< why it is damaged or missing
    std::string strChecksum;             ///< of its bytes, if it is verified
};

/// "verified" and so on, as it is shown and noted.
const char* PieceStateName(tagPiece::State aState);

struct tagRecovery {
    std::vector<tagPiece> vecPieces;
    std::vector<std::string> vecLosses;  ///< signs that more is lost than the pieces say
};

/// Finds the streams and reads those with a known checksum. The bytes of all pieces together are at
/// most 4 times the size of the container, however much its entries overlap, and so are the bytes
/// that are read. Throws CFailure and Interrupted.
tagRecovery RecoverContainer(const tagRecording& aRecording, const NotedStreams& mapKnown);
tagRecovery RecoverDirectory(const tagRecording& aRecording, const NotedStreams& mapKnown);

/// Reads the bytes of a piece.
std::uint64_t ReadPiece(const tagRecording& aRecording, const tagPiece& aPiece,
                        const TakeBytes& aTake);
