#include <algorithm>

#include "tools/cachefile/Checksum.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/KnownChecksums.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Selection.h"
#include "tools/cachefile/StreamBytes.h"
#include "tools/cachefile/Streams.h"

namespace {

/// Computes the checksums of a recording, and compares them with the known ones for --check.
class CSums {
 public:
    CSums(const tagSumsOptions& aOptions, const tagRecording& aRecording, KnownStreams mapKnown)
        : m_options(aOptions),
          m_recording(aRecording),
          m_mapKnown(std::move(mapKnown)),
          m_progress(aOptions.aProgress, "sums", aRecording.qwSize) {}

    /// Returns whether a stream is missing, incomplete or different.
    bool Run() {
        bool bLeftOut = false;
        for (const tagStream* pStream : SelectAll(m_recording, bLeftOut))
            if (CanExtract(*pStream, m_recording))
                Sum(*pStream);
            else
                Incomplete(*pStream);
        for (const auto& [strFile, aKnown] : m_mapKnown) AddMissing(strFile, aKnown);
        m_progress.Finish(m_qwDone);
        return m_bBad || bLeftOut;
    }

    void Print() const {
        if (!m_options.bJson && m_options.bCheck) return m_table.Print();
        if (!m_options.bJson) return ::Print(m_strLines);
        Json aDocument = NewDocument("sums");
        aDocument["path"] = m_options.strPath;
        aDocument["streams"] = m_streams;
        PrintDocument(aDocument);
    }

 private:
    void Sum(const tagStream& aStream);
    void Incomplete(const tagStream& aStream) {
        Warn(aStream.Name() + " is incomplete");
        m_bBad = true;
    }
    void AddMissing(const std::string& strFile, const tagKnownStream& aKnown) {
        m_bBad = true;
        AddRow(strFile, Json(nullptr), 0, aKnown.strChecksum, "missing");
    }
    void AddRow(const std::string& strFile, const Json& aChecksum, std::uint64_t qwBytes,
                const Json& aExpected, const char* lpResult);

    const tagSumsOptions& m_options;
    const tagRecording& m_recording;
    KnownStreams m_mapKnown;  // without those that were compared
    CProgress m_progress;
    CTable m_table{{{"STREAM", CTable::Left},
                    {"FILE", CTable::Left},
                    {"BYTES", CTable::Right},
                    {"RESULT", CTable::Left}}};
    std::string m_strLines;
    Json m_streams = Json::array();
    std::uint64_t m_qwDone = 0;
    bool m_bBad = false;
};

void CSums::Sum(const tagStream& aStream) {
    CChecksum aChecksum;
    const std::uint64_t qwRead =
        ReadStream(m_recording, aStream, [&](const unsigned char* lpData, std::size_t nLength) {
            aChecksum.Add(lpData, nLength);
            m_progress.Show(m_qwDone += nLength);
        });
    if (qwRead < aStream.qwExtent) Incomplete(aStream);
    const std::string strFile = StreamFileName(aStream.aDescriber);
    const std::string strChecksum = aChecksum.GetText();
    const auto itKnown = m_mapKnown.find(strFile);
    if (itKnown == m_mapKnown.end())
        return AddRow(strFile, strChecksum, qwRead, Json(nullptr), "no checksum");
    const bool bSame = itKnown->second.strChecksum == strChecksum;
    m_bBad = m_bBad || !bSame;
    AddRow(strFile, strChecksum, qwRead, itKnown->second.strChecksum,
           bSame ? "verified" : "differs");
    m_mapKnown.erase(itKnown);
}

void CSums::AddRow(const std::string& strFile, const Json& aChecksum, std::uint64_t qwBytes,
                   const Json& aExpected, const char* lpResult) {
    const std::string strName = StreamName(*ParseStreamFileName(strFile));
    if (m_options.bJson)
        m_streams.push_back({{"stream", strName},
                             {"file", strFile},
                             {"bytes", qwBytes},
                             {"xxh3_128", aChecksum},
                             {"expected", aExpected},
                             {"result", m_options.bCheck ? Json(lpResult) : Json(nullptr)}});
    else if (m_options.bCheck)
        m_table.Add({strName, strFile, std::to_string(qwBytes),
                     CTable::Cell(lpResult, lpResult[0] == 'v' ? Style::Plain : Style::Red)});
    else
        m_strLines += aChecksum.get<std::string>() + "  " + strFile + "\n";
}

KnownStreams RequireKnown(const tagSumsOptions& aOptions, const tagRecording& aRecording) {
    if (!aOptions.bCheck) return {};
    KnownStreams mapKnown =
        FindKnownStreams(aOptions.strPath, aRecording.IsContainer(), aOptions.strKnown);
    if (!mapKnown.empty()) return mapKnown;
    throw CFailure("there are no checksums of " + Printable(aOptions.strPath) +
                   " (use `--known` to name a file)");
}

}  // namespace

int Sums(const tagSumsOptions& aOptions) {
    const tagRecording aRecording = RequireRecording(aOptions.strPath);
    bool bBad = false;
    {
        CSums aSums(aOptions, aRecording, RequireKnown(aOptions, aRecording));
        bBad = aSums.Run();
        aSums.Print();
    }
    FinishOutput();
    const int nExit = ReportDamage(aRecording);
    return bBad ? Exit_Damage : nExit;
}
