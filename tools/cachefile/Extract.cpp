#include <algorithm>
#include <filesystem>
#include <set>

#include "tools/cachefile/Checksum.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Notes.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Selection.h"
#include "tools/cachefile/StreamBytes.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

Selection SelectNamed(const tagExtractOptions& aOptions, const tagRecording& aRecording) {
    Selection vecSelected;
    for (const std::string& strName : aOptions.vecStreams) {
        const tagStream* const pStream = aRecording.Find(RequireStream(strName));
        if (!pStream) throw CFailure(Printable(aOptions.strPath) + " has no stream " + strName);
        if (std::find(vecSelected.begin(), vecSelected.end(), pStream) == vecSelected.end())
            vecSelected.push_back(pStream);
    }
    return vecSelected;
}

/// The notes beside the container. Streams are compared with them.
tagNotes LoadContainerNotes(const tagExtractOptions& aOptions) {
    tagNotes aNotes = LoadNotes(NotesOfContainer(System::NativePath(aOptions.strPath)));
    if (aNotes.aState == tagNotes::Bad)
        Warn("the notes of " + Printable(aOptions.strPath) + " are not used: " + aNotes.strFault);
    return aNotes;
}

class CExtraction {
 public:
    CExtraction(const tagExtractOptions& aOptions, const tagRecording& aRecording,
                Selection vecSelected)
        : m_options(aOptions),
          m_recording(aRecording),
          m_vecSelected(std::move(vecSelected)),
          m_notes(LoadContainerNotes(aOptions)),
          m_directory(System::NativePath(aOptions.strDirectory)),
          m_progress(aOptions.aProgress, "extract", CountBytes(m_vecSelected)) {}

    /// Returns whether bytes are missing or differ from the notes.
    bool Run() {
        RequireReasonableSize(m_vecSelected, m_recording, m_options.bAllowOverlap);
        RequireFewFiles(m_vecSelected.size(), m_options.qwMaxFiles, m_options.strPath);
        Prepare();
        for (const tagStream* pStream : m_vecSelected)
            if (CanExtract(*pStream, m_recording))
                Extract(*pStream);
            else
                ReportAllMissing(*pStream);
        WriteNotes();
        m_progress.Finish(m_qwDone);
        return m_bMissing;
    }
    void Print() const;

 private:
    struct tagRow {
        const tagStream* pStream;
        std::uint64_t qwCopied;
        bool bFile;  // false: nothing could be written
    };

    /// Finds everything that prevents the extraction before the first file is written.
    void Prepare() const {
        std::error_code aError;
        std::filesystem::create_directories(m_directory, aError);
        if (!std::filesystem::is_directory(m_directory))
            throw CFailure("cannot create the directory " + Printable(m_options.strDirectory) +
                           (aError ? ": " + aError.message() : ""));
        std::set<std::string> setNames;
        for (const tagStream* pStream : m_vecSelected) {
            setNames.insert(StreamFileName(pStream->aDescriber));
            const std::filesystem::path aPath = m_directory / StreamFileName(pStream->aDescriber);
            RequireFree(aPath, m_options.bForce);
            const auto aInput = System::NativePath(m_options.strPath);
            if (std::filesystem::equivalent(aPath, aInput, aError))
                throw CFailure("the container itself would be overwritten");
        }
        if (!m_notes.mapStreams.empty())
            RequireFree(NotesOfDirectory(m_directory), m_options.bForce);
        RemoveAbandoned(m_directory, setNames);
    }

    /// The files become a recording directory with the notes of their streams.
    void WriteNotes() const {
        if (m_notes.mapStreams.empty()) return;
        Json aDocument = m_notes.aDocument;
        std::set<std::string> setNames;
        for (const tagStream* pStream : m_vecSelected) setNames.insert(pStream->Name());
        aDocument[Noted::c_szStreams] =
            SelectNotes(m_notes, [&](const std::string& str) { return setNames.count(str) > 0; });
        SaveNotes(NotesOfDirectory(m_directory), aDocument);
    }

    void CompareWithNotes(const tagStream& aStream, std::uint64_t qwCopied,
                          const CChecksum& aChecksum) {
        const tagNotedStream* const pNoted = m_notes.Find(aStream.Name());
        const std::string strFault =
            pNoted ? NoteFault(*pNoted, qwCopied, aChecksum.GetText()) : "";
        if (strFault.empty()) return;
        m_bMissing = true;
        Warn(aStream.Name() + " differs from the notes of the recording: " + strFault);
    }

    void ReportMissing(const tagStream& aStream, const std::string& strWhat) {
        m_bMissing = true;
        Warn(aStream.Name() + " is incomplete: " + strWhat);
    }

    void ReportAllMissing(const tagStream& aStream) {
        ReportMissing(aStream, "it starts at " + std::to_string(aStream.qwOffset) +
                                   ", past the end of the file");
        m_vecRows.push_back({&aStream, 0, false});
    }

    void Extract(const tagStream& aStream);
    std::uint64_t Copy(const tagStream& aStream, COutputFile& aFile, CChecksum& aChecksum);
    void PrintTable() const;

    const tagExtractOptions& m_options;
    const tagRecording& m_recording;
    const Selection m_vecSelected;
    const tagNotes m_notes;
    const std::filesystem::path m_directory;
    CProgress m_progress;
    std::vector<tagRow> m_vecRows;
    std::uint64_t m_qwDone = 0;
    bool m_bMissing = false;
};

void CExtraction::Extract(const tagStream& aStream) {
    const std::string strName = StreamFileName(aStream.aDescriber);
    COutputFile aFile(m_directory / strName, m_options.bForce);
    CChecksum aChecksum;
    const std::uint64_t qwCopied = Copy(aStream, aFile, aChecksum);
    aFile.Finish();
    CompareWithNotes(aStream, qwCopied, aChecksum);
    const std::uint64_t qwMissing = aStream.qwExtent - qwCopied;
    if (qwMissing > 0)
        ReportMissing(aStream, Grouped(qwMissing) + " of " + Grouped(aStream.qwExtent) +
                                   " bytes are missing");
    tagStreamExtent aExtent{};
    const auto nIndex = static_cast<std::size_t>(&aStream - m_recording.vecStreams.data());
    m_recording.pIndex->GetStreamExtent(nIndex, aExtent);
    if (aExtent.dwLacking > 0)
        ReportMissing(aStream, "something else begins " + Grouped(aExtent.dwLacking) +
                                   " bytes before its noted end");
    m_vecRows.push_back({&aStream, qwCopied, true});
}

void CExtraction::Print() const {
    if (!m_options.bJson) return PrintTable();
    Json aDocument = NewDocument("extract");
    aDocument["path"] = m_options.strPath;
    aDocument["directory"] = m_options.strDirectory;
    PrintDocument(aDocument, "streams", m_vecRows.size(), [this](std::size_t i) -> Json {
        const auto& [pStream, qwCopied, bFile] = m_vecRows[i];
        return {{"stream", pStream->Name()},
                {"file", bFile ? Json(StreamFileName(pStream->aDescriber)) : Json(nullptr)},
                {"bytes", qwCopied},
                {"missing_bytes", pStream->qwExtent - qwCopied}};
    });
}

/// The table has only the streams with a file.
void CExtraction::PrintTable() const {
    CTable aTable({{"STREAM", CTable::Left},
                   {"FILE", CTable::Left},
                   {"BYTES", CTable::Right},
                   {"MISSING", CTable::Right}});
    aTable.PrintRows(m_vecRows.size(), [this](std::size_t i, auto aTake) {
        const auto& [pStream, qwCopied, bFile] = m_vecRows[i];
        const std::uint64_t qwMissing = pStream->qwExtent - qwCopied;
        if (bFile)
            aTake({pStream->Name(), StreamFileName(pStream->aDescriber), std::to_string(qwCopied),
                   CTable::Cell(std::to_string(qwMissing),
                                qwMissing > 0 ? Style::Red : Style::Plain)});
    });
}

/// Copies the bytes of the stream up to the first that is missing or cannot be read.
std::uint64_t CExtraction::Copy(const tagStream& aStream, COutputFile& aFile,
                                CChecksum& aChecksum) {
    return ReadStream(m_recording, aStream, [&](const unsigned char* lpData, std::size_t nLength) {
        aFile.Write(lpData, nLength);
        aChecksum.Add(lpData, nLength);
        m_progress.Show(m_qwDone += nLength);
    });
}

}  // namespace

int Extract(const tagExtractOptions& aOptions) {
    const tagRecording aRecording = RequireContainer(aOptions.strPath);
    bool bMissing = false;
    {
        const CWarningLimit aLimit;
        Selection vecSelected = aOptions.vecStreams.empty() ? SelectAll(aRecording, bMissing)
                                                            : SelectNamed(aOptions, aRecording);
        CExtraction aExtraction(aOptions, aRecording, std::move(vecSelected));
        bMissing = aExtraction.Run() || bMissing;
        aExtraction.Print();
    }
    FinishOutput();
    const int nExit = ReportDamage(aRecording);
    return bMissing ? Exit_Damage : nExit;
}
