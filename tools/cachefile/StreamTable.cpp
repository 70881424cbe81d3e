#include "tools/cachefile/StreamTable.h"

#include "tools/cachefile/Output.h"
#include "tools/cachefile/Streams.h"

namespace {

std::string Hex(std::uint16_t wTag) {
    std::string strHex = "0x";
    for (int nShift = 12; nShift >= 0; nShift -= 4)
        strHex += "0123456789ABCDEF"[wTag >> nShift & 15];
    return strHex;
}

std::pair<std::string, Style> State(const tagStream& aStream) {
    if (!aStream.bKnown) return {"unknown tag", Style::Yellow};
    if (aStream.nHiddenBy != 0)
        return {"hidden by " + std::to_string(aStream.nHiddenBy), Style::Yellow};
    if (aStream.lpUnreachable) return {aStream.lpUnreachable, Style::Red};
    if (aStream.qwPresent < aStream.qwExtent)
        return {"lacks " + Grouped(aStream.qwExtent - aStream.qwPresent), Style::Red};
    if (aStream.qwPresent >= c_qwPlayable) return {"above 4 GiB", Style::Yellow};
    return {"reachable", Style::Green};
}

/// Adds the fields one by one, because a list in braces would be copied for each of many streams.
Json ToJson(const tagStream& aStream, std::size_t nNumber, bool bContainer) {
    Json aJson = Json::object();
    auto& aFields = aJson.get_ref<Json::object_t&>();
    aFields.reserve(12);
    aFields.emplace_back("number", nNumber);
    aFields.emplace_back("stream", aStream.bKnown ? Json(aStream.Name()) : Json(nullptr));
    aFields.emplace_back("tag", Known(aStream.wTag));
    aFields.emplace_back("tag_hex", aStream.wTag ? Json(Hex(*aStream.wTag)) : Json(nullptr));
    aFields.emplace_back("extra", aStream.dwExtraInfo);
    aFields.emplace_back("offset", bContainer ? Json(aStream.qwOffset) : Json(nullptr));
    aFields.emplace_back("extent", aStream.qwExtent);
    aFields.emplace_back("extent_derived", bContainer);
    aFields.emplace_back("present", aStream.qwPresent);
    aFields.emplace_back("reachable", aStream.IsReachable());
    if (!bContainer)
        aFields.emplace_back("packable", PackFault(aStream.aDescriber, aStream.qwExtent).empty());
    aFields.emplace_back("hidden_by", aStream.nHiddenBy ? Json(aStream.nHiddenBy) : Json(nullptr));
    if (bContainer) aFields.emplace_back("entry_offset", aStream.qwEntryOffset);
    return aJson;
}

}  // namespace

std::string StateText(const tagStream& aStream) { return State(aStream).first; }

void PrintStreams(const tagRecording& aRecording) {
    const bool bContainer = aRecording.IsContainer();
    CTable aTable({{"#", CTable::Right},
                   {"STREAM", CTable::Left},
                   {"TAG", CTable::Right},
                   {"HEX", CTable::Left},
                   {"EXTRA", CTable::Right},
                   {"OFFSET", CTable::Right},
                   {bContainer ? "EXTENT (derived)" : "BYTES", CTable::Right},
                   {"STATE", CTable::Left}});
    aTable.PrintRows(aRecording.vecStreams.size(), [&](std::size_t i, auto aTake) {
        const tagStream& aStream = aRecording.vecStreams[i];
        const auto [strState, aStyle] = State(aStream);
        aTake({std::to_string(i + 1),
               aStream.Name(),
               aStream.wTag ? std::to_string(*aStream.wTag) : "-",
               aStream.wTag ? Hex(*aStream.wTag) : "-",
               bContainer ? std::to_string(aStream.dwExtraInfo) : "-",
               bContainer ? std::to_string(aStream.qwOffset) : "-",
               std::to_string(aStream.qwExtent),
               {strState, aStyle}});
    });
}

void WarnOfStreams(const tagRecording& aRecording) {
    for (const std::string& strName : aRecording.vecNotFiles)
        Warn(Printable(aRecording.strPath + "/" + strName) +
             " is named like a record file, but is not a file");
    for (const tagStream& aStream : aRecording.vecStreams)
        WarnOfSize(aStream.aDescriber, aStream.qwPresent);
}

void PrintWithStreams(Json aDocument, const tagRecording& aRecording) {
    if (!aRecording.IsContainer()) aDocument["not_files"] = aRecording.vecNotFiles;
    PrintDocument(aDocument, "streams", aRecording.vecStreams.size(), [&](std::size_t i) {
        return ToJson(aRecording.vecStreams[i], i + 1, aRecording.IsContainer());
    });
}
