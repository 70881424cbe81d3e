#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "core/DataInfo.h"
#include "tools/cachefile/JsonDocument.h"

// The notes of a recording: what its recorder knew about it. They are the file recording.json of a
// recording directory, or the file NAME.recording.json beside the container NAME. A recording may
// have none. docs/cli.md describes the fields.

constexpr char c_szNotes[] = "recording.json";

struct tagNotedStream {
    std::optional<std::uint64_t> qwBytes;  ///< none until the recording is closed
    std::string strChecksum;               ///< 32 hexadecimal digits, or empty
};

/// The notes as they were read. Other files are never read because of what the notes say.
struct tagNotes {
    /// Bad: the file cannot be read or is not as described.
    enum State { None, Bad, Open, Closed };

    State aState = None;
    std::string strFault;                              ///< why they are bad
    std::map<std::string, tagNotedStream> mapStreams;  ///< by TYPE:ID:KIND
    Json aDocument;                                    ///< with the fields that are not known here

    const tagNotedStream* Find(const std::string& strStream) const;
};

/// The notes of a recording directory or of a container.
std::filesystem::path NotesOfDirectory(const std::filesystem::path& aDirectory);
std::filesystem::path NotesOfContainer(const std::filesystem::path& aContainer);

/// Reads notes that anyone may have written: size and nesting are limited and every field is
/// checked. Throws only std::bad_alloc.
tagNotes LoadNotes(const std::filesystem::path& aFile);

/// Reads a JSON file that anyone may have written: its size and nesting are limited. On failure it
/// sets strFault to the reason and returns null. Throws only std::bad_alloc.
Json ReadJson(const std::filesystem::path& aFile, std::string& strFault);

/// Why a stream differs from its notes, or an empty text. strChecksum may be empty, if it is not
/// known.
std::string NoteFault(const tagNotedStream& aNoted, std::uint64_t qwBytes,
                      const std::string& strChecksum);

/// The notes of the streams, by TYPE:ID:KIND, that aWanted selects, as they are in the document.
Json SelectNotes(const tagNotes& aNotes,
                 const std::function<bool(const std::string& strStream)>& aWanted);

/// Sets the fields of a stream's notes that contain its name and the name of its record file.
void NameStream(Json& aStream, const tagFileDescriber& aDescriber);

/// Replaces the file: a new one is written and synced, and then renamed. Throws CFailure; the old
/// file is then unchanged.
void SaveNotes(const std::filesystem::path& aFile, const Json& aDocument);

/// What a recording directory is at this moment. Recording: a recorder has it locked. Unknown: it
/// has no notes that can be read, and is not locked.
enum class RecordingState { Unknown, Recording, Closed, NotClosed };
bool IsBeingRecorded(const std::filesystem::path& aDirectory);
RecordingState StateOfDirectory(const std::filesystem::path& aDirectory, const tagNotes& aNotes);

/// Notes without streams, in the state "open".
Json NewNotes();

/// The names of the fields that the tool itself reads, and of the states.
namespace Noted {
constexpr char c_szState[] = "state";
constexpr char c_szOpen[] = "open";
constexpr char c_szClosed[] = "closed";
constexpr char c_szStreams[] = "streams";
constexpr char c_szStream[] = "stream";
constexpr char c_szBytes[] = "bytes";
constexpr char c_szChecksum[] = "xxh3_128";
constexpr char c_szSamples[] = "samples";
}  // namespace Noted
