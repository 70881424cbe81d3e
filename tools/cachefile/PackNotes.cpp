#include "tools/cachefile/PackNotes.h"

#include "tools/cachefile/Output.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

constexpr std::uint16_t c_wConfType = 100;

}  // namespace

bool CPackNotes::AddDirectory(const tagRecording& aRecording, bool bHeld) {
    const std::filesystem::path aDirectory = System::NativePath(aRecording.strPath);
    const std::string strPath = Printable(aRecording.strPath);
    m_notes = LoadNotes(NotesOfDirectory(aDirectory));
    if (m_notes.aState == tagNotes::Bad)
        Warn("the notes of " + strPath + " are not used: " + m_notes.strFault);
    const RecordingState aState =
        bHeld ? RecordingState::Recording : StateOfDirectory(aDirectory, m_notes);
    const bool bGrows = aState == RecordingState::Recording;
    if (bGrows)
        Warn(strPath + " is being recorded: each stream is packed up to the length it has now");
    if (aState == RecordingState::NotClosed)
        Warn(strPath + " was not closed: the ends of its streams may be missing");
    if (m_notes.aDocument.is_null()) return bGrows;
    if (m_document.is_null()) {
        m_document = m_notes.aDocument;
        m_document[Noted::c_szStreams] = Json::array();
    }
    Json& aNoted = m_document[Noted::c_szState];
    if (aState == RecordingState::Recovered && aNoted == Noted::c_szClosed)
        aNoted = Noted::c_szRecovered;
    if (aState != RecordingState::Closed && aState != RecordingState::Recovered)
        aNoted = Noted::c_szOpen;
    if (!bGrows) Compare(aRecording);
    return bGrows;
}

void CPackNotes::Compare(const tagRecording& aRecording) {
    const std::string strOf = " of " + Printable(aRecording.strPath);
    const auto aReport = [&](const std::string& strText) {
        m_bDamage = true;
        Warn(strText);
    };
    for (const auto& [strStream, aNoted] : m_notes.mapStreams) {
        const tagStream* const pStream = aRecording.Find(*ParseStreamName(strStream));
        if (!pStream) {
            aReport(strStream + strOf + " has no record file, but is in the notes");
            continue;
        }
        const std::string strFault = NoteFault(aNoted, pStream->qwExtent, "");
        if (!strFault.empty()) aReport(strStream + strOf + " differs from the notes: " + strFault);
    }
}

std::string CPackNotes::AddStream(const tagFileDescriber& aDescriber,
                                  const tagFileDescriber& aPacked) {
    const std::string strName = StreamName(aDescriber);
    const tagNotedStream* const pNoted = m_notes.Find(strName);
    if (!pNoted) return {};
    Json aNotes = m_notes.FieldsOf(strName);
    NameStream(aNotes, aPacked);
    m_document[Noted::c_szStreams].push_back(std::move(aNotes));
    return pNoted->strChecksum;
}

void CPackNotes::Write(bool bHeaderChanged) {
    std::error_code aIgnored;
    if (m_document.is_null()) {
        std::filesystem::remove(m_file, aIgnored);
        return;
    }
    for (Json& aStream : m_document[Noted::c_szStreams])
        if (bHeaderChanged &&
            ParseStreamName(aStream[Noted::c_szStream].get<std::string>())->wDataType ==
                c_wConfType)
            aStream.erase(Noted::c_szChecksum);
    SaveNotes(m_file, m_document);
}
