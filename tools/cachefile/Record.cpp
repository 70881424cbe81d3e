#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <set>

#include "download/ContainerFormat.h"
#include "platform/CmCallerThread.h"
#include "tools/cachefile/Commands.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/JsonDocument.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/OutputFile.h"
#include "tools/cachefile/Recorder.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

namespace {

/// What one stream is made of, and how far it is.
struct tagSource {
    tagSource(const tagPlan& aPlan, const tagFileDescriber& aDescriber, std::string strFile)
        : strPath(std::move(strFile)), aRecorder(aPlan, aDescriber) {}

    void End() {
        bEnded = true;
        aRecorder.Close();
    }

    /// As soon as it is known how large the stream is or will be.
    void WarnOnceOfSize(std::uint64_t qwSize) {
        if (bLarge || qwSize < c_qwPlayable) return;
        bLarge = true;
        WarnOfSize(aRecorder.GetDescriber(), qwSize);
    }

    const std::string strPath;
    System::CInput aInput;
    CRecorder aRecorder;
    bool bEnded = false;
    bool bInputFailed = false;
    bool bLarge = false;  // and warned of
};
using Sources = std::vector<std::unique_ptr<tagSource>>;

std::string NameOf(const tagSource& aSource) {
    return StreamName(aSource.aRecorder.GetDescriber());
}

Sources MakeSources(const tagRecordOptions& aOptions) {
    Sources vecSources;
    std::set<std::string> setNames, setInputs;
    for (const std::string& strStream : aOptions.vecStreams) {
        const std::size_t nEqual = strStream.find('=');
        if (nEqual == std::string::npos || nEqual + 1 == strStream.size())
            throw CFailure("--stream " + strStream + ": expected STREAM=FILE", Exit_Usage);
        const tagFileDescriber aDescriber = RequireStream(strStream.substr(0, nEqual));
        const std::string strInput = strStream.substr(nEqual + 1);
        if (!setNames.insert(StreamName(aDescriber)).second)
            throw CFailure("the stream " + StreamName(aDescriber) + " is given twice", Exit_Usage);
        if (!setInputs.insert(strInput).second && strInput == "-")
            throw CFailure("standard input cannot be two streams", Exit_Usage);
        vecSources.push_back(std::make_unique<tagSource>(aOptions.aPlan, aDescriber, strInput));
    }
    return vecSources;
}

/// Opens the inputs and sees that none of them, and nothing else, would be written over.
void OpenInputs(const tagRecordOptions& aOptions, const Sources& vecSources) {
    for (const auto& pSource : vecSources)
        if (!pSource->aInput.Open(pSource->strPath))
            throw CFailure("cannot open " + Printable(pSource->strPath) + ": " +
                           std::strerror(errno));
    for (const auto& pTarget : vecSources)
        for (const auto& pInput : vecSources)
            if (pInput->aInput.IsFile(pTarget->aRecorder.GetPath()))
                throw CFailure(Printable(pInput->strPath) + " would be overwritten");
    for (const auto& pTarget : vecSources)
        RequireFree(pTarget->aRecorder.GetPath(), aOptions.bForce);
}

/// Total bytes of the inputs, or 0 if the size of one of them is unknown.
std::uint64_t CountInput(const Sources& vecSources) {
    std::uint64_t qwTotal = 0;
    for (const auto& pSource : vecSources) {
        const std::optional<std::uint64_t> qwUnread = pSource->aInput.CountUnread();
        if (!qwUnread) return 0;
        qwTotal += *qwUnread;
    }
    return qwTotal;
}

/// Warns of streams that can be recorded, but not packed later.
void WarnOfUnpackable(const Sources& vecSources) {
    for (const auto& pSource : vecSources) {
        const std::string strFault =
            PackFault(pSource->aRecorder.GetDescriber(), c_dwEntryFileHeaderSize);
        if (!strFault.empty()) Warn(NameOf(*pSource) + " cannot be packed later: " + strFault);
        pSource->WarnOnceOfSize(pSource->aInput.CountUnread().value_or(0));
    }
}

/// Takes input and hands it to the recorders until all of it has ended.
class CLoop {
 public:
    CLoop(const tagRecordOptions& aOptions, Sources& vecSources)
        : m_options(aOptions),
          m_vecSources(vecSources),
          m_vecPiece(aOptions.nPiece),
          m_progress(aOptions.aProgress, "record", CountInput(vecSources)) {
        if (!aOptions.aPlan.bSync) CCmCallerThread::GetWakeDescriptor(m_nWake);
    }

    /// Ends early when the process is interrupted.
    void Run() {
        while (!System::IsInterrupted()) {
            std::vector<tagSource*> vecOpen;
            std::vector<System::CInput*> vecInputs;
            for (const auto& pSource : m_vecSources) {
                if (!pSource->bEnded && pSource->aRecorder.GetFailure() != CACHE_OK) pSource->End();
                if (pSource->bEnded) continue;
                vecOpen.push_back(pSource.get());
                vecInputs.push_back(&pSource->aInput);
            }
            if (vecOpen.empty()) break;
            std::vector<bool> vecReady;
            System::WaitForInputs(vecInputs, m_nWake, vecReady);
            for (std::size_t i = 0; i < vecOpen.size() && !System::IsInterrupted(); ++i)
                if (vecReady[i]) Take(*vecOpen[i]);
            if (!m_options.aPlan.bSync) CCmCallerThread::RunPending();
        }
        m_progress.Finish(m_qwDone);
    }

 private:
    void Take(tagSource& aSource) {
        const long long nRead = aSource.aInput.Read(m_vecPiece.data(), m_vecPiece.size());
        if (nRead == -2) return;
        if (nRead > 0) {
            const auto nLength = static_cast<std::size_t>(nRead);
            aSource.aRecorder.Write(m_vecPiece.data(), nLength);
            aSource.WarnOnceOfSize(aSource.aRecorder.GetBytes());
            HoldBack();
            m_progress.Show(m_qwDone += nLength);
            return;
        }
        if (nRead < 0) {
            aSource.bInputFailed = true;
            Warn("cannot read " + Printable(aSource.strPath) + ": " + std::strerror(errno));
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
        aTable.Add({NameOf(*pSource), std::to_string(aRecorder.GetBytes()),
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
        aDocument["streams"].push_back(
            {{"stream", NameOf(*pSource)},
             {"file", StreamFileName(aRecorder.GetDescriber())},
             {"source", pSource->strPath},
             {"bytes", aRecorder.GetBytes()},
             {"pieces", aRecorder.GetPieces()},
             {"seconds", aOutcome.dSeconds},
             {"mb_per_second", MegabytesPerSecond(aRecorder.GetBytes(), aOutcome.dSeconds)},
             {"lost_bytes", aRecorder.CountLostBytes()}});
    }
    PrintDocument(aDocument);
}

/// Loss comes before everything else, since a lost byte is what a recorder must not hide.
int Judge(const Sources& vecSources, const tagOutcome& aOutcome) {
    bool bLost = false, bFailed = false;
    for (const auto& pSource : vecSources) {
        const CmInt32 lFailure = pSource->aRecorder.GetFailure();
        if (lFailure != CACHE_OK) Warn(ResultText("recording " + NameOf(*pSource), lFailure));
        bFailed = bFailed || lFailure != CACHE_OK || pSource->bInputFailed;
        bLost = bLost || pSource->aRecorder.CountLostBytes() > 0;
    }
    if (bLost) return Exit_Damage;
    if (bFailed) return Exit_Failed;
    return aOutcome.bInterrupted ? Exit_Interrupted : Exit_Done;
}

/// When it returns, everything that was accepted lies in the files.
void RecordAll(const tagRecordOptions& aOptions, Sources& vecSources) {
    const Shutdown aShutdown;
    for (const auto& pSource : vecSources) {
        const CmInt32 lResult = pSource->aRecorder.Open();
        if (lResult != CACHE_OK)
            throw CFailure(ResultText(
                "cannot write " + Printable(pSource->aRecorder.GetPath().u8string()), lResult));
    }
    CLoop(aOptions, vecSources).Run();
    for (const auto& pSource : vecSources) pSource->aRecorder.Close();
}

}  // namespace

int Record(const tagRecordOptions& aOptions) {
    const CCmCallerThreadGuard aCallerThread;
    Sources vecSources = MakeSources(aOptions);
    OpenInputs(aOptions, vecSources);
    WarnOfUnpackable(vecSources);
    const auto aBegin = std::chrono::steady_clock::now();
    RecordAll(aOptions, vecSources);
    tagOutcome aOutcome;
    aOutcome.dSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - aBegin).count();
    aOutcome.bInterrupted = System::IsInterrupted();
    const int nExit = Judge(vecSources, aOutcome);
    if (aOptions.bJson)
        PrintJson(aOptions, vecSources, aOutcome);
    else
        PrintText(vecSources, aOutcome);
    return nExit;
}
