#include <charconv>
#include <filesystem>
#include <map>

#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/StreamTable.h"
#include "tools/cachefile/System.h"
#include "tools/cachefile/Watch.h"

namespace {

std::size_t CountReachable(const tagRecording& aRecording) {
    std::size_t nCount = 0;
    for (const tagStream& aStream : aRecording.vecStreams)
        if (aStream.IsReachable()) ++nCount;
    return nCount;
}

const char* StateName(RecordingState aState) {
    static const char* const s_aNames[] = {"unknown", "being recorded", "closed", "not closed"};
    return s_aNames[static_cast<int>(aState)];
}

/// What the notes of a recording say, and the state of a directory.
struct tagNoted {
    explicit tagNoted(const tagRecording& aRecording) {
        const std::filesystem::path aPath = System::NativePath(aRecording.strPath);
        const bool bContainer = aRecording.IsContainer();
        aNotes = LoadNotes(bContainer ? NotesOfContainer(aPath) : NotesOfDirectory(aPath));
        if (!bContainer) aState = StateOfDirectory(aPath, aNotes);
        if (aNotes.aState == tagNotes::Bad)
            Warn("the notes of " + Printable(aRecording.strPath) +
                 " cannot be used: " + aNotes.strFault);
    }

    Json Field(const char* lpName) const {
        return aNotes.aDocument.is_object() ? aNotes.aDocument.value(lpName, Json()) : Json();
    }
    /// The same as text for a terminal; empty if it is not a text.
    std::string Text(const char* lpName) const {
        const Json aField = Field(lpName);
        return aField.is_string() ? Printable(aField.get<std::string>()) : "";
    }

    tagNotes aNotes;
    RecordingState aState = RecordingState::Unknown;
};

Json ToJson(const tagRecording& aRecording, const tagNoted& aNoted) {
    Json aDocument = NewDocument("info");
    const bool bContainer = aRecording.IsContainer();
    const tagQXFFileHeader aHeader =
        bContainer ? aRecording.pIndex->GetFileHeader() : tagQXFFileHeader{};
    aDocument["path"] = aRecording.strPath;
    aDocument["kind"] = bContainer ? "container" : "directory";
    aDocument["state"] =
        aNoted.aState == RecordingState::Unknown ? Json(nullptr) : Json(StateName(aNoted.aState));
    for (const char* const lpName : {"started", "ended", "reason"})
        aDocument[lpName] = aNoted.Field(lpName);
    aDocument["size"] = aRecording.qwSize;
    aDocument["declared_size"] = bContainer ? Json(aHeader.dwFileSize) : Json(nullptr);
    aDocument["file_version"] = Known(aRecording.dwFileVersion);
    aDocument["cb_time_stamp"] = Known(aRecording.dwCBTimeStamp);
    aDocument["index_type"] = bContainer ? Json(aHeader.dwIndexType) : Json(nullptr);
    aDocument["entry_count"] = bContainer ? Json(aHeader.dwEntryCount) : Json(nullptr);
    aDocument["entries_read"] = bContainer ? Json(aRecording.vecStreams.size()) : Json(nullptr);
    aDocument["reachable_streams"] = CountReachable(aRecording);
    return aDocument;
}

void PrintField(const std::string& strName, const std::string& strValue) {
    std::string strLine = strName;
    strLine.resize(15, ' ');
    Print(Paint(strLine, Style::Bold) + strValue + "\n");
}

std::string Text(const std::optional<CmUint32>& dwValue) {
    return dwValue ? std::to_string(*dwValue) : "unknown";
}

std::string Size(std::uint64_t qwBytes) {
    return Grouped(qwBytes) + " bytes" +
           (qwBytes < 1024 ? "" : " (" + ByteSize(static_cast<double>(qwBytes)) + ")");
}

void PrintContainerFields(const tagRecording& aRecording) {
    const tagQXFFileHeader& aHeader = aRecording.pIndex->GetFileHeader();
    const std::size_t nRead = aRecording.vecStreams.size();
    if (aHeader.dwFileSize != aRecording.qwSize)
        PrintField("size in header", Size(aHeader.dwFileSize));
    PrintField("index type", aHeader.dwIndexType == Index_Packed ? "0 (packed)" : "1 (chained)");
    PrintField("entries", Grouped(aHeader.dwEntryCount) +
                              (nRead == aHeader.dwEntryCount ? "" : ", read " + Grouped(nRead)));
}

void PrintNotes(const tagNoted& aNoted) {
    if (aNoted.aState != RecordingState::Unknown) PrintField("state", StateName(aNoted.aState));
    for (const char* const lpName : {"started", "ended", "reason"}) {
        const std::string strText = aNoted.Text(lpName);
        if (!strText.empty()) PrintField(lpName, strText);
    }
}

void PrintText(const tagRecording& aRecording, const tagNoted& aNoted) {
    const bool bContainer = aRecording.IsContainer();
    PrintField(bContainer ? "container" : "directory", Printable(aRecording.strPath));
    PrintNotes(aNoted);
    PrintField("size", Size(aRecording.qwSize));
    PrintField("file version", Text(aRecording.dwFileVersion));
    PrintField("CB time stamp", Text(aRecording.dwCBTimeStamp));
    if (bContainer) PrintContainerFields(aRecording);
    PrintField("streams", Grouped(CountReachable(aRecording)));
    Print("\n");
    PrintStreams(aRecording);
}

/// A directory of recordings: its subdirectories that are named like one, in order of number.
std::map<CmUint32, tagRecording> LoadRecordings(const std::string& strPath) {
    std::map<CmUint32, tagRecording> mapRecordings;
    std::error_code aError;
    std::filesystem::directory_iterator it(System::NativePath(strPath), aError);
    for (; !aError && it != std::filesystem::directory_iterator(); it.increment(aError)) {
        const std::string strName = it->path().filename().u8string();
        CmUint32 dwNumber = 0;
        std::from_chars(strName.data(), strName.data() + strName.size(), dwNumber);
        std::error_code aIgnored;
        if (std::to_string(dwNumber) == strName && it->is_directory(aIgnored))
            mapRecordings[dwNumber] = LoadDirectory(strPath + "/" + strName);
    }
    return mapRecordings;
}

void PrintRecordings(const tagInfoOptions& aOptions,
                     const std::map<CmUint32, tagRecording>& mapRecordings) {
    CTable aTable({{"RECORDING", CTable::Left},
                   {"STREAMS", CTable::Right},
                   {"BYTES", CTable::Right},
                   {"STATE", CTable::Left}});
    Json aDocument = NewDocument("info");
    aDocument["path"] = aOptions.strPath;
    aDocument["kind"] = "recordings";
    aDocument["recordings"] = Json::array();
    for (const auto& [dwNumber, aRecording] : mapRecordings) {
        const std::size_t nStreams = aRecording.vecStreams.size();
        const char* const lpState = StateName(tagNoted(aRecording).aState);
        aTable.Add({Printable(aRecording.strPath), std::to_string(nStreams),
                    std::to_string(aRecording.qwSize), lpState});
        aDocument["recordings"].push_back({{"record_id", dwNumber},
                                           {"path", aRecording.strPath},
                                           {"streams", nStreams},
                                           {"size", aRecording.qwSize},
                                           {"state", lpState}});
    }
    if (aOptions.bJson)
        PrintDocument(aDocument);
    else
        aTable.Print();
}

}  // namespace

int Info(const tagInfoOptions& aOptions) {
    if (aOptions.bWatch) return Watch(aOptions);
    const tagRecording aRecording = RequireRecording(aOptions.strPath);
    if (!aRecording.IsContainer() && aRecording.vecStreams.empty()) {
        const auto mapRecordings = LoadRecordings(aOptions.strPath);
        if (!mapRecordings.empty()) {
            PrintRecordings(aOptions, mapRecordings);
            return Exit_Done;
        }
    }
    const tagNoted aNoted(aRecording);
    if (aOptions.bJson)
        PrintWithStreams(ToJson(aRecording, aNoted), aRecording);
    else
        PrintText(aRecording, aNoted);
    FinishOutput();
    WarnOfStreams(aRecording);
    return ReportDamage(aRecording);
}
