#include "tools/cachefile/Recordings.h"

#include <charconv>
#include <filesystem>
#include <map>

#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/ShownNotes.h"
#include "tools/cachefile/System.h"

namespace {

/// The subdirectories that are named like a recording, in order of number.
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

void PrintTable(const std::map<CmUint32, tagRecording>& mapRecordings) {
    CTable aTable({{"RECORDING", CTable::Left},
                   {"STREAMS", CTable::Right},
                   {"BYTES", CTable::Right},
                   {"STATE", CTable::Left}});
    for (const auto& [dwNumber, aRecording] : mapRecordings)
        aTable.Add({Printable(aRecording.strPath), std::to_string(aRecording.vecStreams.size()),
                    std::to_string(aRecording.qwSize),
                    StateName(tagShownNotes(aRecording).aState)});
    aTable.Print();
}

}  // namespace

bool PrintRecordings(const std::string& strCommand, const tagRecording& aDirectory, bool bJson) {
    if (aDirectory.IsContainer() || !aDirectory.vecStreams.empty()) return false;
    const std::map<CmUint32, tagRecording> mapRecordings = LoadRecordings(aDirectory.strPath);
    if (mapRecordings.empty()) return false;
    if (!bJson) {
        PrintTable(mapRecordings);
        return true;
    }
    Json aDocument = NewDocument(strCommand);
    aDocument["path"] = aDirectory.strPath;
    aDocument["kind"] = "recordings";
    aDocument["recordings"] = Json::array();
    for (const auto& [dwNumber, aRecording] : mapRecordings)
        aDocument["recordings"].push_back({{"record_id", dwNumber},
                                           {"path", aRecording.strPath},
                                           {"streams", aRecording.vecStreams.size()},
                                           {"size", aRecording.qwSize},
                                           {"state", StateName(tagShownNotes(aRecording).aState)}});
    PrintDocument(aDocument);
    return true;
}
