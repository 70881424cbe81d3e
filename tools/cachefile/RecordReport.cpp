#include "tools/cachefile/RecordReport.h"

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"

namespace {

double MegabytesPerSecond(std::uint64_t qwBytes, double dSeconds) {
    return dSeconds > 0 ? static_cast<double>(qwBytes) / 1e6 / dSeconds : 0;
}

void PrintText(const Sources& vecSources, const tagOutcome& aOutcome) {
    CTable aTable({{"STREAM", CTable::Left},
                   {"BYTES", CTable::Right},
                   {"PIECES", CTable::Right},
                   {"SECONDS", CTable::Right},
                   {"MB/S", CTable::Right},
                   {"LOST", CTable::Right}});
    for (const auto& pSource : vecSources) {
        const tagTotals aTotals = pSource->GetTotals();
        const std::string strLost = std::to_string(aTotals.qwLost);
        aTable.Add({pSource->Name(), std::to_string(aTotals.qwTaken),
                    std::to_string(aTotals.qwPieces), Decimal(aOutcome.dSeconds, 3),
                    Decimal(MegabytesPerSecond(aTotals.qwTaken, aOutcome.dSeconds), 1),
                    CTable::Cell(strLost, aTotals.qwLost ? Style::Red : Style::Green)});
    }
    aTable.Print();
    for (const tagPartResult& aPart : aOutcome.vecParts)
        if (aOutcome.vecParts.size() > 1)
            Print("part " + std::to_string(aPart.dwNumber) + ": " + Grouped(aPart.qwStored) +
                  " bytes\n");
}

void PrintJson(const tagRecordOptions& aOptions, const Sources& vecSources,
               const tagOutcome& aOutcome) {
    Json aDocument = NewDocument("record");
    aDocument["record_id"] = aOptions.aPlan.dwRecordID;
    aDocument["directory"] = aOptions.aPlan.Directory();
    aDocument["mode"] = aOptions.aPlan.bSync ? "synchronous" : "asynchronous";
    aDocument["interrupted"] = aOutcome.bInterrupted;
    aDocument["reason"] = aOutcome.vecParts.back().strReason;
    aDocument["seconds"] = aOutcome.dSeconds;
    aDocument["parts"] = Json::array();
    for (const tagPartResult& aPart : aOutcome.vecParts)
        aDocument["parts"].push_back({{"record_id", aPart.dwNumber},
                                      {"bytes", aPart.qwStored},
                                      {"reason", aPart.strReason}});
    aDocument["streams"] = Json::array();
    for (const auto& pSource : vecSources) {
        const tagTotals aTotals = pSource->GetTotals();
        const auto qwUnread = pSource->aInput.CountUnread();
        aDocument["streams"].push_back(
            {{"stream", pSource->Name()},
             {"file", StreamFileName(pSource->aDescriber)},
             {"source", pSource->strPath},
             {"bytes", aTotals.qwTaken},
             {"pieces", aTotals.qwPieces},
             {"seconds", aOutcome.dSeconds},
             {"mb_per_second", MegabytesPerSecond(aTotals.qwTaken, aOutcome.dSeconds)},
             {"taken_bytes", aTotals.qwTaken},
             {"stored_bytes", aTotals.qwStored},
             {"lost_bytes", aTotals.qwLost},
             {"unread_bytes", qwUnread ? Json(*qwUnread) : Json(nullptr)},
             {"error", pSource->strError.empty() ? Json(nullptr) : Json(pSource->strError)}});
    }
    PrintDocument(aDocument);
}

/// Loss has precedence over all other outcomes, since a recorder must never hide it.
int Judge(const Sources& vecSources, const tagOutcome& aOutcome) {
    bool bLost = false, bFailed = aOutcome.bNoteFailure;
    for (const auto& pSource : vecSources) {
        bFailed = bFailed || !pSource->strError.empty();
        bLost = bLost || pSource->GetTotals().qwLost > 0;
    }
    if (bLost) return Exit_Damage;
    if (bFailed) return Exit_Failed;
    return aOutcome.bInterrupted ? Exit_Interrupted : Exit_Done;
}

/// Reports all failures to a program as one object.
void ReportAsJson(const Sources& vecSources, int nExit) {
    std::string strText;
    const std::string strOther =
        nExit == Exit_Interrupted ? "interrupted" : "the notes of the recording cannot be written";
    for (const auto& pSource : vecSources)
        if (!pSource->strError.empty())
            strText += (strText.empty() ? "recording " : "; recording ") + pSource->Name() +
                       " failed: " + pSource->strError;
    if (nExit != Exit_Done) ReportError(strText.empty() ? strOther : strText, nExit);
}

}  // namespace

int ReportRecording(const tagRecordOptions& aOptions, const Sources& vecSources,
                    const tagOutcome& aOutcome) {
    const int nExit = Judge(vecSources, aOutcome);
    if (!aOptions.bJson) {
        PrintText(vecSources, aOutcome);
        return nExit;
    }
    PrintJson(aOptions, vecSources, aOutcome);
    ReportAsJson(vecSources, nExit);
    return nExit;
}
