#include <algorithm>

#include "tools/cachefile/Checksum.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Examine.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Selection.h"
#include "tools/cachefile/ShownNotes.h"
#include "tools/cachefile/StreamBytes.h"
#include "tools/cachefile/Streams.h"

namespace {

/// Computes the checksums of a recording, and compares them with the known ones for --check.
class CSums {
 public:
    CSums(const tagSumsOptions& aOptions, const tagRecording& aRecording, NotedStreams mapKnown)
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
        for (const auto& [strName, aKnown] : m_mapKnown) AddMissing(strName, aKnown);
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
    void AddMissing(const std::string& strName, const tagNotedStream& aKnown) {
        m_bBad = true;
        AddRow(*ParseStreamName(strName), Json(nullptr), 0, Expected(aKnown), "missing");
    }
    static Json Expected(const tagNotedStream& aKnown) {
        return aKnown.strChecksum.empty() ? Json(nullptr) : Json(aKnown.strChecksum);
    }
    void AddRow(const tagFileDescriber& aDescriber, const Json& aChecksum, std::uint64_t qwBytes,
                const Json& aExpected, const char* lpResult);

    const tagSumsOptions& m_options;
    const tagRecording& m_recording;
    NotedStreams m_mapKnown;  // without those that were compared
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
    const std::string strChecksum = aChecksum.GetText();
    tagNotedStream aKnown;
    const auto itKnown = m_mapKnown.find(aStream.Name());
    if (itKnown != m_mapKnown.end()) {
        aKnown = itKnown->second;
        m_mapKnown.erase(itKnown);
    }
    const bool bSame = aKnown.strChecksum == strChecksum;
    m_bBad = m_bBad || !(bSame || aKnown.strChecksum.empty());
    AddRow(aStream.aDescriber, strChecksum, qwRead, Expected(aKnown),
           bSame                        ? "verified"
           : aKnown.strChecksum.empty() ? "no checksum"
                                        : "differs");
}

void CSums::AddRow(const tagFileDescriber& aDescriber, const Json& aChecksum, std::uint64_t qwBytes,
                   const Json& aExpected, const char* lpResult) {
    const std::string strName = StreamName(aDescriber);
    const std::string strFile = StreamFileName(aDescriber);
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

NotedStreams RequireKnown(const tagSumsOptions& aOptions, const tagRecording& aRecording) {
    if (!aOptions.bCheck) return {};
    NotedStreams mapKnown = aOptions.strKnown.empty() ? tagShownNotes(aRecording).aNotes.mapStreams
                                                      : LoadStreams(aOptions.strKnown);
    for (const auto& [strName, aKnown] : mapKnown)
        if (!aKnown.strChecksum.empty()) return mapKnown;
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
