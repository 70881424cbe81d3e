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
        const Selection vecSelected = SelectAll(m_recording, bLeftOut);
        RequireReasonableSize(vecSelected, m_recording, m_options.bAllowOverlap);
        for (const tagStream* pStream : vecSelected)
            if (CanExtract(*pStream, m_recording))
                Sum(*pStream);
            else
                Incomplete(*pStream);
        for (const auto& [strName, aKnown] : m_mapKnown) AddMissing(strName, aKnown);
        m_progress.Finish(m_qwDone);
        return m_bBad || bLeftOut;
    }

    void Print() const;

 private:
    struct tagRow {
        tagFileDescriber aDescriber;
        std::uint64_t qwBytes;
        std::string strChecksum;  // empty if the stream is missing
        std::string strExpected;  // empty if it is not known
        const char* lpResult;
    };

    void Sum(const tagStream& aStream);
    void Incomplete(const tagStream& aStream) {
        Warn(aStream.Name() + " is incomplete");
        m_bBad = true;
    }
    void AddMissing(const std::string& strName, const tagNotedStream& aKnown) {
        m_bBad = true;
        m_vecRows.push_back({*ParseStreamName(strName), 0, "", aKnown.strChecksum, "missing"});
    }
    void PrintTable() const;
    void PrintJson() const;

    const tagSumsOptions& m_options;
    const tagRecording& m_recording;
    NotedStreams m_mapKnown;  // without those that were compared
    CProgress m_progress;
    std::vector<tagRow> m_vecRows;
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
    m_vecRows.push_back({aStream.aDescriber, qwRead, strChecksum, aKnown.strChecksum,
                         bSame                        ? "verified"
                         : aKnown.strChecksum.empty() ? "no checksum"
                                                      : "differs"});
}

void CSums::Print() const {
    if (m_options.bJson) return PrintJson();
    if (m_options.bCheck) return PrintTable();
    for (const tagRow& a : m_vecRows)
        ::Print(a.strChecksum + "  " + StreamFileName(a.aDescriber) + "\n");
}

void CSums::PrintTable() const {
    CTable aTable({{"STREAM", CTable::Left},
                   {"FILE", CTable::Left},
                   {"BYTES", CTable::Right},
                   {"RESULT", CTable::Left}});
    aTable.PrintRows(m_vecRows.size(), [this](std::size_t i, auto aTake) {
        const tagRow& a = m_vecRows[i];
        aTake({StreamName(a.aDescriber), StreamFileName(a.aDescriber), std::to_string(a.qwBytes),
               CTable::Cell(a.lpResult, a.lpResult[0] == 'v' ? Style::Plain : Style::Red)});
    });
}

void CSums::PrintJson() const {
    Json aDocument = NewDocument("sums");
    aDocument["path"] = m_options.strPath;
    const auto aText = [](const std::string& str) { return str.empty() ? Json() : Json(str); };
    PrintDocument(aDocument, "streams", m_vecRows.size(), [&](std::size_t i) -> Json {
        const tagRow& a = m_vecRows[i];
        return {{"stream", StreamName(a.aDescriber)},
                {"file", StreamFileName(a.aDescriber)},
                {"bytes", a.qwBytes},
                {"xxh3_128", aText(a.strChecksum)},
                {"expected", aText(a.strExpected)},
                {"result", m_options.bCheck ? Json(a.lpResult) : Json(nullptr)}};
    });
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
        const CWarningLimit aLimit;
        CSums aSums(aOptions, aRecording, RequireKnown(aOptions, aRecording));
        bBad = aSums.Run();
        aSums.Print();
    }
    FinishOutput();
    const int nExit = ReportDamage(aRecording);
    return bBad ? Exit_Damage : nExit;
}
