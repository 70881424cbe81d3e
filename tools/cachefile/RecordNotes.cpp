#include "tools/cachefile/RecordNotes.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"

namespace {

/// "2024-01-31T12:00:00.000Z"
std::string Now() {
    using namespace std::chrono;
    const auto nMilliseconds =
        duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    const auto nSeconds = static_cast<std::time_t>(nMilliseconds / 1000);
    char aText[32] = "";
    if (const std::tm* const pTime = std::gmtime(&nSeconds))
        std::strftime(aText, sizeof aText, "%Y-%m-%dT%H:%M:%S", pTime);
    const std::string strPart = std::to_string(1000 + nMilliseconds % 1000);
    return aText + ("." + strPart.substr(1)) + "Z";
}

Json OpenStream(const tagSource& aSource) {
    Json aStream;
    NameStream(aStream, aSource.aDescriber);
    aStream["source"] = aSource.strPath;
    aStream[Noted::c_szBytes] = nullptr;
    return aStream;
}

Json Holes(const tagFileLosses& aLosses) {
    Json aHoles = Json::array();
    for (const tagFileHole& aHole : aLosses.vecHoles)
        aHoles.push_back({{"offset", aHole.qwOffset},
                          {"bytes", aHole.qwLength},
                          {"in_place", aHole.bInPlace != 0}});
    return aHoles;
}

Json ClosedStream(const tagSource& aSource, const Json& aSamples) {
    const CRecorder& aRecorder = *aSource.pRecorder;
    const std::string strChecksum = aRecorder.FindChecksum();
    Json aStream = OpenStream(aSource);
    aStream[Noted::c_szBytes] = aRecorder.CountStoredBytes();
    aStream["taken_bytes"] = aRecorder.GetBytes();
    aStream["lost_bytes"] = aRecorder.CountLostBytes();
    aStream["pieces"] = aRecorder.GetPieces();
    aStream["holes"] = Holes(aRecorder.GetLosses());
    aStream["all_holes"] = aRecorder.GetLosses().bAllHoles != 0;
    aStream[Noted::c_szSamples] = aSamples;
    aStream["error"] = aSource.strError.empty() ? Json(nullptr) : Json(aSource.strError);
    aStream[Noted::c_szChecksum] = strChecksum.empty() ? Json(nullptr) : Json(strChecksum);
    return aStream;
}

bool IsRecorded(const Sources& vecSources, const Json& aStream) {
    return std::any_of(vecSources.begin(), vecSources.end(), [&](const auto& pSource) {
        return pSource->pRecorder && aStream[Noted::c_szStream] == pSource->Name();
    });
}

}  // namespace

CRecordNotes::CRecordNotes(const tagPlan& aPlan, const Sources& vecSources)
    : m_file(NotesOfDirectory(System::NativePath(aPlan.Directory()))),
      m_vecSources(vecSources),
      m_document(NewNotes()) {
    const tagNotes aEarlier = LoadNotes(m_file);
    m_bNew = aEarlier.aState == tagNotes::None;
    if (aEarlier.aState == tagNotes::Bad)
        Warn(Printable(m_file.u8string()) + " is replaced: " + aEarlier.strFault);
    if (!aEarlier.aDocument.is_null()) {
        m_document = aEarlier.aDocument;
        for (const Json& aStream : m_document[Noted::c_szStreams])
            if (!IsRecorded(vecSources, aStream)) m_kept.push_back(aStream);
        for (const Json& aStream : m_kept)
            m_bAllKeptClosed = m_bAllKeptClosed && aStream.contains(Noted::c_szBytes) &&
                               !aStream[Noted::c_szBytes].is_null();
    }
    m_document["record_id"] = aPlan.dwRecordID;
}

CRecordNotes::~CRecordNotes() {
    std::error_code aIgnored;
    if (m_bNew && !m_bClosed) std::filesystem::remove(m_file, aIgnored);
}

void CRecordNotes::Open() {
    m_document["started"] = Now();
    m_document["ended"] = nullptr;
    m_document["reason"] = nullptr;
    Json aStreams = m_kept;
    for (const auto& pSource : m_vecSources)
        if (pSource->pRecorder) aStreams.push_back(OpenStream(*pSource));
    Save(Noted::c_szOpen, std::move(aStreams));
}

void CRecordNotes::Close(const std::string& strReason) {
    m_bClosed = true;
    m_document["ended"] = Now();
    m_document["reason"] = strReason;
    const auto aNow = CSamples::Clock::now();
    Json aStreams = m_kept;
    for (const auto& pSource : m_vecSources)
        if (pSource->pRecorder &&
            (pSource->bRecorded || pSource->pRecorder->CountStoredBytes() > 0))
            aStreams.push_back(
                ClosedStream(*pSource, pSource->aSamples->ToJson(m_document["started"], aNow)));
    Save(m_bAllKeptClosed ? Noted::c_szClosed : Noted::c_szOpen, std::move(aStreams));
}

void CRecordNotes::Save(const char* lpState, Json aStreams) {
    m_document[Noted::c_szState] = lpState;
    m_document[Noted::c_szStreams] = std::move(aStreams);
    try {
        SaveNotes(m_file, m_document);
    } catch (const CFailure& aFailure) {
        Warn(aFailure.what());
        m_bFailed = true;
    }
}
