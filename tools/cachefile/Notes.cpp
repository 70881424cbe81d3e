#include "tools/cachefile/Notes.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>
#include <utility>

#include "tools/cachefile/Budgets.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Recording.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

constexpr char c_szSchema[] = "recording";
constexpr char c_szSumsSchema[] = "sums";
constexpr std::size_t c_nChecksumDigits = 32;

/// The parser takes much more memory than the text for each nested array and for each short value.
/// Returns why a text is not parsed, or an empty text.
std::string FindExcess(const std::string& strText) {
    std::size_t nDepth = 0, nValues = 0;
    bool bInText = false;
    for (std::size_t i = 0; i < strText.size(); ++i) {
        const char c = strText[i];
        if (bInText && c == '\\')
            ++i;
        else if (c == '"')
            bInText = !bInText;
        else if (!bInText && (c == '[' || c == '{') && ++nDepth > c_nMaxJsonDepth)
            return "it is nested too deeply";
        else if (!bInText && (c == ']' || c == '}') && nDepth > 0)
            --nDepth;
        // An array or an object, and each value after a comma.
        if (!bInText && (c == '[' || c == '{' || c == ',') && ++nValues > c_nMaxJsonValues)
            return "it has more than " + Grouped(c_nMaxJsonValues) + " values";
    }
    return {};
}

/// Returns why the file cannot be read, or an empty text.
std::string ReadText(const std::filesystem::path& aFile, std::string& strText) {
    std::error_code aError;
    // Reading a pipe would wait for its writer.
    if (!std::filesystem::is_regular_file(aFile, aError))
        return aError ? aError.message() : "it is not a regular file";
    const std::uintmax_t nSize = std::filesystem::file_size(aFile, aError);
    if (aError) return aError.message();
    if (nSize > c_nMaxJsonSize) return "it is too large";
    std::ifstream aStream(aFile, std::ios::binary);
    strText.resize(static_cast<std::size_t>(nSize));
    aStream.read(strText.data(), static_cast<std::streamsize>(nSize));
    return aStream ? "" : "it cannot be read";
}

const Json& Field(const Json& aObject, const char* lpName) {
    static const Json s_null;
    const auto it = aObject.find(lpName);
    return it == aObject.end() ? s_null : *it;
}

bool IsChecksum(const std::string& strText) {
    return strText.size() == c_nChecksumDigits &&
           strText.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// Returns false if the fields of a stream are not as described.
bool TakeStream(const Json& aStream, std::size_t nRow, NotedStreams& mapStreams) {
    if (!aStream.is_object()) return false;
    const Json& aName = Field(aStream, Noted::c_szStream);
    const Json& aBytes = Field(aStream, Noted::c_szBytes);
    const Json& aChecksum = Field(aStream, Noted::c_szChecksum);
    if (!aName.is_string()) return false;
    const auto aDescriber = ParseStreamName(aName.get<std::string>());
    if (!aDescriber || (!aBytes.is_null() && !aBytes.is_number_unsigned())) return false;
    tagNotedStream aNoted;
    if (!aBytes.is_null()) aNoted.qwBytes = aBytes.get<std::uint64_t>();
    if (!aChecksum.is_null()) {
        if (!aChecksum.is_string() || !IsChecksum(aChecksum.get<std::string>())) return false;
        aNoted.strChecksum = aChecksum.get<std::string>();
    }
    aNoted.nRow = nRow;
    return mapStreams.try_emplace(StreamName(*aDescriber), aNoted).second;
}

/// These return what is wrong, or an empty text.

std::string TakeStreams(const Json& aDocument, const char* lpSchema, NotedStreams& mapStreams) {
    if (!aDocument.is_object()) return "it is not a JSON object";
    const Json aWanted = NewDocument(lpSchema);
    for (const char* const lpName : {"schema", "version"})
        if (Field(aDocument, lpName) != aWanted[lpName])
            return std::string("its ") + lpName + " is not " + aWanted[lpName].dump();
    const Json& aStreams = Field(aDocument, Noted::c_szStreams);
    if (!aStreams.is_array()) return "it has no list of streams";
    for (std::size_t i = 0; i < aStreams.size(); ++i)
        if (!TakeStream(aStreams[i], i, mapStreams))
            return "one of its streams is malformed or given twice";
    return {};
}

std::string TakeState(tagNotes& aNotes) {
    const Json& aState = Field(aNotes.aDocument, Noted::c_szState);
    for (const auto& [lpName, aKnown] : {std::pair(Noted::c_szOpen, tagNotes::Open),
                                         std::pair(Noted::c_szClosed, tagNotes::Closed),
                                         std::pair(Noted::c_szRecovered, tagNotes::Recovered)})
        if (aState == lpName) aNotes.aState = aKnown;
    return aNotes.aState == tagNotes::None ? "its state is unknown" : "";
}

std::string Parse(const std::string& strText, Json& aDocument) {
    std::string strFault = FindExcess(strText);
    if (!strFault.empty()) return strFault;
    aDocument = Json::parse(strText, nullptr, false);
    return aDocument.is_discarded() ? "it is not JSON" : "";
}

/// strFault is why there is no document, or empty.
tagNotes Take(Json aDocument, std::string strFault) {
    tagNotes aNotes;
    aNotes.aDocument = std::move(aDocument);
    if (strFault.empty()) strFault = TakeStreams(aNotes.aDocument, c_szSchema, aNotes.mapStreams);
    if (strFault.empty()) strFault = TakeState(aNotes);
    if (strFault.empty()) return aNotes;
    tagNotes aBad;
    aBad.aState = tagNotes::Bad;
    aBad.strFault = strFault;
    return aBad;
}

/// Lines are CHECKSUM, two spaces, and the path of a file. Others are ignored.
NotedStreams TakeLines(const std::string& strText) {
    NotedStreams mapStreams;
    std::istringstream aText(strText);
    for (std::string strLine; std::getline(aText, strLine);) {
        if (!strLine.empty() && strLine.back() == '\r') strLine.pop_back();
        if (strLine.size() < c_nChecksumDigits + 2) continue;
        std::string strChecksum = strLine.substr(0, c_nChecksumDigits);
        std::transform(strChecksum.begin(), strChecksum.end(), strChecksum.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        const std::string strFile = strLine.substr(c_nChecksumDigits + 2);
        const auto aDescriber = ParseStreamFileName(strFile.substr(strFile.find_last_of('/') + 1));
        if (aDescriber && IsChecksum(strChecksum))
            mapStreams[StreamName(*aDescriber)] = {std::nullopt, strChecksum};
    }
    return mapStreams;
}

}  // namespace

Json ReadJson(const std::filesystem::path& aFile, std::string& strFault) {
    std::string strText;
    Json aDocument;
    strFault = ReadText(aFile, strText);
    if (strFault.empty()) strFault = Parse(strText, aDocument);
    return strFault.empty() ? aDocument : Json();
}

const tagNotedStream* tagNotes::Find(const std::string& strStream) const {
    const auto it = mapStreams.find(strStream);
    return it == mapStreams.end() ? nullptr : &it->second;
}

Json tagNotes::FieldsOf(const std::string& strStream) const {
    const tagNotedStream* const pNoted = Find(strStream);
    return pNoted ? aDocument.at(Noted::c_szStreams).at(pNoted->nRow) : Json();
}

std::filesystem::path NotesOfDirectory(const std::filesystem::path& aDirectory) {
    return aDirectory / c_szNotes;
}

std::filesystem::path NotesOfContainer(const std::filesystem::path& aContainer) {
    std::filesystem::path aPath = aContainer;
    return aPath += std::string(".") + c_szNotes;
}

tagNotes LoadNotes(const std::filesystem::path& aFile) {
    std::error_code aError;
    const auto aStatus = std::filesystem::status(aFile, aError);
    if (aStatus.type() == std::filesystem::file_type::not_found) return {};
    std::string strFault;
    Json aDocument = ReadJson(aFile, strFault);
    return Take(std::move(aDocument), strFault);
}

tagNotes ParseNotes(const std::string& strText) {
    Json aDocument;
    const std::string strFault = Parse(strText, aDocument);
    return Take(std::move(aDocument), strFault);
}

bool IsBeingRecorded(const std::filesystem::path& aDirectory) {
    return System::CFileLock::IsHeld(aDirectory / c_szRecordingLock);
}

NotedStreams ParseStreams(const std::string& strText) {
    Json aDocument;
    const bool bJson = Parse(strText, aDocument).empty();
    for (const char* const lpSchema : {c_szSchema, c_szSumsSchema}) {
        NotedStreams mapStreams;
        if (bJson && TakeStreams(aDocument, lpSchema, mapStreams).empty()) return mapStreams;
    }
    return TakeLines(strText);
}

NotedStreams LoadStreams(const std::string& strPath) {
    std::string strText;
    const std::string strFault = ReadText(System::NativePath(strPath), strText);
    if (!strFault.empty()) throw CFailure("cannot read " + Printable(strPath) + ": " + strFault);
    NotedStreams mapStreams = ParseStreams(strText);
    if (mapStreams.empty())
        throw CFailure(Printable(strPath) + " has no checksums and is no recording.json");
    return mapStreams;
}

RecordingState StateOfDirectory(const std::filesystem::path& aDirectory, const tagNotes& aNotes) {
    if (IsBeingRecorded(aDirectory)) return RecordingState::Recording;
    if (aNotes.aState == tagNotes::Closed) return RecordingState::Closed;
    if (aNotes.aState == tagNotes::Recovered) return RecordingState::Recovered;
    return aNotes.aState == tagNotes::Open ? RecordingState::NotClosed : RecordingState::Unknown;
}

std::string NoteFault(const tagNotedStream& aNoted, std::uint64_t qwBytes,
                      const std::string& strChecksum) {
    if (aNoted.qwBytes && *aNoted.qwBytes != qwBytes)
        return "it has " + Grouped(qwBytes) + " bytes instead of " + Grouped(*aNoted.qwBytes);
    const bool bBoth = !strChecksum.empty() && !aNoted.strChecksum.empty();
    return bBoth && strChecksum != aNoted.strChecksum ? "its checksum is another one" : "";
}

Json SelectNotes(const tagNotes& aNotes,
                 const std::function<bool(const std::string& strStream)>& aWanted) {
    Json aSelected = Json::array();
    if (aNotes.mapStreams.empty()) return aSelected;
    for (const Json& aStream : aNotes.aDocument[Noted::c_szStreams])
        if (aWanted(StreamName(*ParseStreamName(aStream[Noted::c_szStream].get<std::string>()))))
            aSelected.push_back(aStream);
    return aSelected;
}

void NameStream(Json& aStream, const tagFileDescriber& aDescriber) {
    aStream[Noted::c_szStream] = StreamName(aDescriber);
    aStream["type"] = aDescriber.wDataType;
    aStream["id"] = aDescriber.dwFileID;
    aStream["kind"] = aDescriber.byFileType;
    aStream["file"] = StreamFileName(aDescriber);
}

void SaveNotes(const std::filesystem::path& aFile, const Json& aDocument) {
    const std::filesystem::path aDirectory = aFile.has_parent_path() ? aFile.parent_path() : ".";
    RemoveAbandoned(aDirectory, {aFile.filename().u8string()});
    COutputFile aOutput(aFile, true);
    const std::string strText = aDocument.dump(2, ' ', false, Json::error_handler_t::replace);
    aOutput.Write(strText.data(), strText.size());
    aOutput.Write("\n", 1);
    aOutput.Finish();
}

Json NewNotes() {
    Json aDocument = NewDocument(c_szSchema);
    aDocument[Noted::c_szState] = Noted::c_szOpen;
    aDocument[Noted::c_szStreams] = Json::array();
    return aDocument;
}
