#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Recordings.h"
#include "tools/cachefile/ShownNotes.h"
#include "tools/cachefile/ShownRecording.h"
#include "tools/cachefile/StreamTable.h"
#include "tools/cachefile/Watch.h"

namespace {

std::size_t CountReachable(const tagRecording& aRecording) {
    std::size_t nCount = 0;
    for (const tagStream& aStream : aRecording.vecStreams)
        if (aStream.IsReachable()) ++nCount;
    return nCount;
}

Json ToJson(const tagRecording& aRecording, const tagShownNotes& aNotes) {
    Json aDocument = NewDocument("info");
    const bool bContainer = aRecording.IsContainer();
    const tagQXFFileHeader aHeader =
        bContainer ? aRecording.pIndex->GetFileHeader() : tagQXFFileHeader{};
    aDocument["path"] = aRecording.strPath;
    aDocument["kind"] = bContainer ? "container" : "directory";
    aDocument["state"] =
        aNotes.aState == RecordingState::Unknown ? Json(nullptr) : Json(StateName(aNotes.aState));
    for (const char* const lpName : {"started", "ended", "reason"})
        aDocument[lpName] = aNotes.Field(lpName);
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

void PrintNotes(const tagShownNotes& aNotes) {
    if (aNotes.aState != RecordingState::Unknown) PrintField("state", StateName(aNotes.aState));
    for (const char* const lpName : {"started", "ended", "reason"}) {
        const std::string strText = aNotes.Text(lpName);
        if (!strText.empty()) PrintField(lpName, strText);
    }
}

void PrintText(const tagRecording& aRecording, const tagShownNotes& aNotes) {
    const bool bContainer = aRecording.IsContainer();
    PrintField(bContainer ? "container" : "directory", Printable(aRecording.strPath));
    PrintNotes(aNotes);
    PrintField("size", Size(aRecording.qwSize));
    PrintField("file version", Text(aRecording.dwFileVersion));
    PrintField("CB time stamp", Text(aRecording.dwCBTimeStamp));
    if (bContainer) PrintContainerFields(aRecording);
    PrintField("streams", Grouped(CountReachable(aRecording)));
    Print("\n");
    PrintStreams(aRecording);
}

}  // namespace

int Info(const tagInfoOptions& aOptions) {
    if (aOptions.bWatch) return Watch(aOptions);
    const CShownRecording aShown(aOptions.strPath);
    const tagRecording& aRecording = aShown.Get();
    if (PrintRecordings("info", aRecording, aOptions.bJson)) return Exit_Done;
    const tagShownNotes aNotes(aRecording);
    if (aOptions.bJson)
        PrintWithStreams(ToJson(aRecording, aNotes), aRecording);
    else
        PrintText(aRecording, aNotes);
    FinishOutput();
    WarnOfStreams(aRecording);
    return ReportDamage(aRecording);
}
