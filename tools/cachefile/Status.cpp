#include "tools/cachefile/Status.h"

#include <fstream>

#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Recording.h"

namespace {

constexpr char c_szStatusSchema[] = "status";
constexpr char c_szPending[] = "pending_bytes";
constexpr char c_szLost[] = "lost_bytes";

Json ToJson(Json aJson, const tagStatusBytes& aBytes) {
    aJson[c_szPending] = aBytes.qwPending;
    aJson[c_szLost] = aBytes.qwLost;
    return aJson;
}

/// Throws Json::exception if the fields are not as described.
tagStatusBytes FromJson(const Json& aJson) {
    return {aJson.at(c_szPending).get<std::uint64_t>(), aJson.at(c_szLost).get<std::uint64_t>()};
}

}  // namespace

tagStatusBytes tagStatus::Find(const std::string& strStream) const {
    const auto it = mapStreams.find(strStream);
    return it == mapStreams.end() ? tagStatusBytes{} : it->second;
}

CStatusFile::CStatusFile(const std::filesystem::path& aDirectory, const Sources& vecSources)
    : m_file(aDirectory / c_szStatus),
      m_newFile(aDirectory / c_szNewStatus),
      m_vecSources(vecSources) {}

CStatusFile::~CStatusFile() {
    std::error_code aIgnored;
    std::filesystem::remove(m_newFile, aIgnored);
    std::filesystem::remove(m_file, aIgnored);
}

void CStatusFile::Update() {
    const auto aNow = std::chrono::steady_clock::now();
    if (aNow < m_next) return;
    m_next = aNow + std::chrono::milliseconds(c_nInterval);
    std::string strText = Describe();
    if (strText == m_strWritten) return;
    const bool bWritten = Write(strText);
    m_strWritten = bWritten ? std::move(strText) : "";
    std::error_code aIgnored;
    if (!bWritten) std::filesystem::remove(m_file, aIgnored);
}

/// Lists only the streams that have pending or lost bytes, so that the file of a sound recording
/// stays small.
std::string CStatusFile::Describe() const {
    tagStatusBytes aTotal;
    Json aStreams = Json::array();
    for (const auto& pSource : m_vecSources) {
        if (!pSource->pRecorder) continue;
        const tagStatusBytes aBytes{pSource->pRecorder->CountPendingBytes(),
                                    pSource->pRecorder->CountKnownLosses()};
        aTotal.qwPending += aBytes.qwPending;
        aTotal.qwLost += aBytes.qwLost;
        if (aBytes.qwPending > 0 || aBytes.qwLost > 0)
            aStreams.push_back(ToJson({{Noted::c_szStream, pSource->Name()}}, aBytes));
    }
    Json aDocument = ToJson(NewDocument(c_szStatusSchema), aTotal);
    aDocument[Noted::c_szStreams] = std::move(aStreams);
    return aDocument.dump() + "\n";
}

bool CStatusFile::Write(const std::string& strText) const {
    std::error_code aError;
    std::ofstream aStream(m_newFile, std::ios::binary | std::ios::trunc);
    aStream << strText;
    aStream.close();
    if (aStream) std::filesystem::rename(m_newFile, m_file, aError);
    const bool bWritten = aStream && !aError;
    if (!bWritten) std::filesystem::remove(m_newFile, aError);
    return bWritten;
}

std::optional<tagStatus> LoadStatus(const std::filesystem::path& aDirectory) try {
    std::string strFault;
    const Json aDocument = ReadJson(aDirectory / c_szStatus, strFault);
    if (aDocument.at("schema") != NewDocument(c_szStatusSchema)["schema"]) return {};
    tagStatus aStatus{FromJson(aDocument), {}};
    for (const Json& aStream : aDocument.at(Noted::c_szStreams))
        aStatus.mapStreams[aStream.at(Noted::c_szStream).get<std::string>()] = FromJson(aStream);
    return aStatus;
} catch (const Json::exception&) {
    return {};
}
