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
    std::size_t nRow = 0;                  ///< of notes: its place in the list of streams
};
using NotedStreams = std::map<std::string, tagNotedStream>;  ///< by TYPE:ID:KIND

/// The notes as they were read. Other files are never read because of what the notes say.
struct tagNotes {
    /// Bad: the file cannot be read or is not as described.
    /// Recovered: `recover` made the recording.
    enum State { None, Bad, Open, Closed, Recovered };

    State aState = None;
    std::string strFault;  ///< why they are bad
    NotedStreams mapStreams;
    Json aDocument;  ///< with the fields that are not known here

    const tagNotedStream* Find(const std::string& strStream) const;
    /// All that the notes have about a stream, or null.
    Json FieldsOf(const std::string& strStream) const;
};

/// The notes of a recording directory or of a container.
std::filesystem::path NotesOfDirectory(const std::filesystem::path& aDirectory);
std::filesystem::path NotesOfContainer(const std::filesystem::path& aContainer);

/// Reads notes that anyone may have written: size, nesting and number of values are limited
/// (Budgets.h), and every field is checked. Throws only std::bad_alloc.
tagNotes LoadNotes(const std::filesystem::path& aFile);
/// The same from the text of the file.
tagNotes ParseNotes(const std::string& strText);

/// Reads a JSON file that anyone may have written, with the same limits. On failure it sets
/// strFault to the reason and returns null. Throws only std::bad_alloc.
Json ReadJson(const std::filesystem::path& aFile, std::string& strFault);

/// Reads the streams and checksums of a file that the user names: notes, what `sums --json` writes,
/// or lines as `sums` and xxh128sum write them. Throws CFailure if it is none of these.
NotedStreams LoadStreams(const std::string& strPath);
/// The same from the text of the file. Returns no streams if it has none.
NotedStreams ParseStreams(const std::string& strText);

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
enum class RecordingState { Unknown, Recording, Closed, NotClosed, Recovered };
bool IsBeingRecorded(const std::filesystem::path& aDirectory);
RecordingState StateOfDirectory(const std::filesystem::path& aDirectory, const tagNotes& aNotes);

/// Notes without streams, in the state "open".
Json NewNotes();

/// The names of the fields that the tool itself reads, and of the states.
namespace Noted {
constexpr char c_szState[] = "state";
constexpr char c_szOpen[] = "open";
constexpr char c_szClosed[] = "closed";
constexpr char c_szRecovered[] = "recovered";
constexpr char c_szStreams[] = "streams";
constexpr char c_szStream[] = "stream";
constexpr char c_szBytes[] = "bytes";
constexpr char c_szChecksum[] = "xxh3_128";
constexpr char c_szSamples[] = "samples";
}  // namespace Noted
