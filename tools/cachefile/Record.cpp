#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/CmCallerThread.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Sources.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"
#include "tools/cachefile/Trace.h"

namespace {

/// Reads the inputs and passes their bytes to the recorders until all inputs have ended.
class CLoop {
 public:
    CLoop(const tagRecordOptions& aOptions, Sources& vecSources)
        : m_options(aOptions),
          m_vecSources(vecSources),
          m_vecPiece(aOptions.nPiece),
          m_progress(aOptions.aProgress, "record", CountInput(vecSources)) {
        if (!aOptions.aPlan.bSync) CCmCallerThread::GetWakeDescriptor(m_nWake);
    }

    /// Returns early if the process is interrupted. Failures are reported when they occur.
    void Run() {
        while (!System::IsInterrupted()) {
            ReportFailures();
            std::vector<tagSource*> vecOpen;
            std::vector<System::CInput*> vecInputs;
            for (const auto& pSource : m_vecSources) {
                if (pSource->bEnded) continue;
                vecOpen.push_back(pSource.get());
                vecInputs.push_back(&pSource->aInput);
            }
            if (vecOpen.empty()) break;
            std::vector<bool> vecReady;
            System::WaitForInputs(vecInputs, m_nWake, vecReady);
            for (std::size_t i = 0; i < vecOpen.size() && !System::IsInterrupted(); ++i)
                if (vecReady[i]) ReadPiece(*vecOpen[i]);
            if (!m_options.aPlan.bSync) CCmCallerThread::RunPending();
        }
    }

    /// Call it after the shutdown, when all bytes are in the files or lost.
    void Finish() {
        ReportFailures();
        for (const auto& pSource : m_vecSources) {
            const std::uint64_t qwLost = pSource->aRecorder.CountLostBytes();
            if (pSource->strError.empty() && qwLost > 0)
                Report(*pSource, Grouped(qwLost) + " bytes are missing from its file");
        }
        m_progress.Finish(m_qwDone, NoteLoss());
    }

 private:
    void ReportFailures() {
        for (const auto& pSource : m_vecSources) {
            if (!pSource->strError.empty() || pSource->aRecorder.GetFailure() == CACHE_OK) continue;
            Report(*pSource, pSource->aRecorder.GetFailureText());
            pSource->End();
        }
    }

    void Report(tagSource& aSource, const std::string& strError) {
        aSource.strError = strError;
        m_progress.Erase();
        Warn("recording " + aSource.Name() + " failed: " + strError);
    }

    /// Adds the failures to the progress, and returns them as text.
    std::string NoteLoss() {
        std::uint64_t qwFailed = 0, qwLost = 0;
        for (const auto& pSource : m_vecSources) {
            if (pSource->strError.empty()) continue;
            ++qwFailed;
            qwLost += pSource->aRecorder.CountLostBytes();
        }
        m_progress.SetFields({{"failed_streams", qwFailed}, {"lost_bytes", qwLost}});
        return qwFailed == 0 ? ""
                             : std::to_string(qwFailed) + " failed, " +
                                   ByteSize(static_cast<double>(qwLost)) + " lost";
    }

    void ReadPiece(tagSource& aSource) {
        const long long nRead = aSource.aInput.Read(m_vecPiece.data(), m_vecPiece.size());
        if (nRead == -2) return;
        if (nRead > 0) {
            const auto nLength = static_cast<std::size_t>(nRead);
            aSource.aRecorder.Write(m_vecPiece.data(), nLength);
            aSource.WarnOnceOfSize(aSource.aRecorder.GetBytes());
            HoldBack();
            m_progress.Show(m_qwDone += nLength, NoteLoss());
            return;
        }
        if (nRead < 0) {
            aSource.bRecorded = false;
            Report(aSource,
                   "cannot read " + Printable(aSource.strPath) + ": " + std::strerror(errno));
        }
        aSource.End();
    }

    const tagRecordOptions& m_options;
    Sources& m_vecSources;
    std::vector<unsigned char> m_vecPiece;
    CProgress m_progress;
    std::uint64_t m_qwDone = 0;
    int m_nWake = -1;
};

struct tagOutcome {
    double dSeconds = 0;
    bool bInterrupted = false;
};

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
        const CRecorder& aRecorder = pSource->aRecorder;
        const std::uint64_t qwLost = aRecorder.CountLostBytes();
        aTable.Add({pSource->Name(), std::to_string(aRecorder.GetBytes()),
                    std::to_string(aRecorder.GetPieces()), Decimal(aOutcome.dSeconds, 3),
                    Decimal(MegabytesPerSecond(aRecorder.GetBytes(), aOutcome.dSeconds), 1),
                    CTable::Cell(std::to_string(qwLost), qwLost ? Style::Red : Style::Green)});
    }
    aTable.Print();
}

void PrintJson(const tagRecordOptions& aOptions, const Sources& vecSources,
               const tagOutcome& aOutcome) {
    Json aDocument = NewDocument("record");
    aDocument["record_id"] = aOptions.aPlan.dwRecordID;
    aDocument["directory"] = aOptions.aPlan.Directory();
    aDocument["mode"] = aOptions.aPlan.bSync ? "synchronous" : "asynchronous";
    aDocument["interrupted"] = aOutcome.bInterrupted;
    aDocument["seconds"] = aOutcome.dSeconds;
    aDocument["streams"] = Json::array();
    for (const auto& pSource : vecSources) {
        const CRecorder& aRecorder = pSource->aRecorder;
        const auto qwUnread = pSource->aInput.CountUnread();
        aDocument["streams"].push_back(
            {{"stream", pSource->Name()},
             {"file", StreamFileName(aRecorder.GetDescriber())},
             {"source", pSource->strPath},
             {"bytes", aRecorder.GetBytes()},
             {"pieces", aRecorder.GetPieces()},
             {"seconds", aOutcome.dSeconds},
             {"mb_per_second", MegabytesPerSecond(aRecorder.GetBytes(), aOutcome.dSeconds)},
             {"taken_bytes", aRecorder.GetBytes()},
             {"stored_bytes", aRecorder.CountStoredBytes()},
             {"lost_bytes", aRecorder.CountLostBytes()},
             {"unread_bytes", qwUnread ? Json(*qwUnread) : Json(nullptr)},
             {"error", pSource->strError.empty() ? Json(nullptr) : Json(pSource->strError)}});
    }
    PrintDocument(aDocument);
}

/// Loss has precedence over all other outcomes, since a recorder must never hide it.
int Judge(const Sources& vecSources, const tagOutcome& aOutcome) {
    bool bLost = false, bFailed = false;
    for (const auto& pSource : vecSources) {
        bFailed = bFailed || !pSource->strError.empty();
        bLost = bLost || pSource->aRecorder.CountLostBytes() > 0;
    }
    if (bLost) return Exit_Damage;
    if (bFailed) return Exit_Failed;
    return aOutcome.bInterrupted ? Exit_Interrupted : Exit_Done;
}

/// Reports all failures to a program as one object.
void ReportAsJson(const Sources& vecSources, int nExit) {
    std::string strText;
    for (const auto& pSource : vecSources)
        if (!pSource->strError.empty())
            strText += (strText.empty() ? "recording " : "; recording ") + pSource->Name() +
                       " failed: " + pSource->strError;
    if (nExit != Exit_Done) ReportError(strText.empty() ? "interrupted" : strText, nExit);
}

/// When it returns, all accepted bytes are in the files.
void RecordAll(const Sources& vecSources, CLoop& aLoop) {
    const Shutdown aShutdown;
    for (const auto& pSource : vecSources) {
        if (pSource->aRecorder.Open() != CACHE_OK)
            throw CFailure("cannot write " + Printable(pSource->aRecorder.GetPath().u8string()) +
                           ": " + pSource->aRecorder.GetFailureText());
        pSource->bRecorded = true;
    }
    aLoop.Run();
    for (const auto& pSource : vecSources) pSource->aRecorder.Close();
}

}  // namespace

int Record(const tagRecordOptions& aOptions) {
    Trace::Listen(false);
    const CCmCallerThreadGuard aCallerThread;
    System::CFileLock aLock;
    Sources vecSources = MakeSources(aOptions);
    OpenInputs(aOptions, vecSources);
    LockDirectory(aOptions.aPlan, aLock);
    const CRecordFiles aFiles(aOptions, vecSources);
    WarnOfUnpackable(vecSources);
    const auto aBegin = std::chrono::steady_clock::now();
    CLoop aLoop(aOptions, vecSources);
    RecordAll(vecSources, aLoop);
    aLoop.Finish();
    tagOutcome aOutcome;
    aOutcome.dSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - aBegin).count();
    aOutcome.bInterrupted = System::IsInterrupted();
    const int nExit = Judge(vecSources, aOutcome);
    if (!aOptions.bJson) {
        PrintText(vecSources, aOutcome);
        return nExit;
    }
    PrintJson(aOptions, vecSources, aOutcome);
    ReportAsJson(vecSources, nExit);
    return nExit;
}
