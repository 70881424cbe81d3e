#include "tools/cachefile/RecordLoop.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/CmCallerThread.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"

namespace {

/// Milliseconds between looks for space on a full disk. The system reports no freed space.
constexpr int c_nSpaceLook = 250;

constexpr std::uint64_t c_qwGatherBlock = 32768;  // what the library gathers for each stream

}  // namespace

CRecordLoop::CRecordLoop(const tagRecordOptions& aOptions, Sources& vecSources)
    : m_options(aOptions),
      m_vecSources(vecSources),
      m_vecPiece(aOptions.nPiece),
      m_progress(aOptions.aProgress, "record", CountInput(vecSources)),
      m_limits(aOptions.aLimits) {
    if (!aOptions.aPlan.bSync) CCmCallerThread::GetWakeDescriptor(m_nWake);
}

void CRecordLoop::Run() {
    BeginPart(m_options.aPlan.dwRecordID);
    const std::string strReason = ReadInputs();
    if (strReason == "min-free") {
        m_progress.Erase();
        Warn("the recording ends: less than " +
             ByteSize(static_cast<double>(m_options.aLimits.qwMinFree)) + " would be free");
    }
    EndPart(strReason);
    m_progress.Finish(m_qwDone, NoteLoss());
}

/// Returns why the recording ends. Callbacks run after each round, so a failure is reported before
/// the next one.
std::string CRecordLoop::ReadInputs() {
    std::vector<tagSource*> vecReady;
    while (!System::IsInterrupted()) {
        ReportFailures();
        m_pPart->UpdateStatus();
        if (const char* const lpReason = m_limits.FindEnd()) {
            if (lpReason == std::string("max-bytes")) WaitForSpace();
            return lpReason;
        }
        if (!Wait(vecReady)) return HasGoodSource() ? "inputs-ended" : "failed";
        for (tagSource* const pSource : vecReady)
            if (!System::IsInterrupted()) ReadPiece(*pSource);
        if (m_options.aPlan.bSync)
            CCacheFileManager::FlushAged();
        else
            CCmCallerThread::RunPending();
    }
    return "interrupted";
}

bool CRecordLoop::HasGoodSource() const {
    return std::any_of(m_vecSources.begin(), m_vecSources.end(),
                       [](const auto& pSource) { return pSource->strError.empty(); });
}

/// Waits for the inputs that have not ended. Returns false if there are none.
bool CRecordLoop::Wait(std::vector<tagSource*>& vecReady) {
    std::vector<tagSource*> vecOpen;
    std::vector<System::CInput*> vecInputs;
    bool bPaused = false;
    for (const auto& pSource : m_vecSources) {
        if (pSource->bEnded) continue;
        if (IsPaused(*pSource) || MustWaitForOthers(*pSource)) {
            bPaused = true;
            continue;
        }
        vecOpen.push_back(pSource.get());
        vecInputs.push_back(&pSource->aInput);
    }
    vecReady.clear();
    if (vecOpen.empty() && !bPaused) return false;
    std::vector<bool> vecCanRead;
    System::WaitForInputs(vecInputs, m_nWake, GetTimeout(bPaused), vecCanRead);
    for (std::size_t i = 0; i < vecOpen.size(); ++i)
        if (vecCanRead[i]) vecReady.push_back(vecOpen[i]);
    return true;
}

/// In milliseconds. The status is written once a second.
int CRecordLoop::GetTimeout(bool bPaused) const {
    int nTimeout = CStatusFile::c_nInterval;
    const auto aAtMost = [&](int nMilliseconds) {
        if (nMilliseconds >= 0) nTimeout = std::min(nTimeout, nMilliseconds);
    };
    aAtMost(m_limits.GetTimeout());
    if (bPaused) aAtMost(c_nSpaceLook);
    // Where nobody wakes this loop, only it flushes old bytes, even while no input is ready. Bytes
    // wait for the flush time and one wait of the loop, together less than 1.1 flush times.
    if (m_nWake < 0 && m_options.dwFlush > 0)
        aAtMost(static_cast<int>(std::max<CmUint32>(m_options.dwFlush / 12, 1)));
    return nTimeout;
}

void CRecordLoop::ReadPiece(tagSource& aSource) {
    const std::size_t nWanted = m_limits.Clip(m_vecPiece.size(), aSource.pRecorder->GetBytes());
    if (nWanted == 0) return;  // another stream has reached the limit
    const long long nRead = aSource.aInput.Read(m_vecPiece.data(), nWanted);
    if (nRead == System::CInput::Read_NothingYet) return;
    if (nRead > 0) return Take(aSource, static_cast<std::size_t>(nRead));
    if (nRead == System::CInput::Read_Failed) {
        aSource.bRecorded = false;
        Report(aSource, "cannot read " + Printable(aSource.strPath) + ": " + std::strerror(errno));
    }
    aSource.pRecorder->WriteKept();
    if (nRead == 0 && aSource.pRecorder->IsFull()) return;  // the end is read again later
    aSource.End();
}

/// Only bytes that were read begin a part, so that none is made for an input that has ended.
void CRecordLoop::Take(tagSource& aSource, std::size_t nLength) {
    if (m_limits.IsPartFull(aSource.pRecorder->GetBytes())) BeginNextPart(aSource, nLength);
    aSource.pRecorder->Write(m_vecPiece.data(), nLength);
    aSource.aSamples->Add(CSamples::Clock::now(), nLength);
    m_limits.Count(nLength);
    aSource.WarnOnceOfSize(aSource.pRecorder->GetBytes());
    HoldBack();
    m_progress.Show(m_qwDone += nLength, NoteLoss());
}

void CRecordLoop::ReportFailures() {
    for (const auto& pSource : m_vecSources) {
        CRecorder* const pRecorder = pSource->pRecorder.get();
        if (!pRecorder || !pSource->strError.empty() || pRecorder->GetFailure() == CACHE_OK)
            continue;
        Report(*pSource, pRecorder->GetFailureText());
        pSource->End();
    }
}

void CRecordLoop::Report(tagSource& aSource, const std::string& strError) {
    aSource.strError = strError;
    m_progress.Erase();
    Warn("recording " + aSource.Name() + " failed: " + strError);
}

/// Whether the stream waits for space on a full disk. Reports when that begins and ends.
bool CRecordLoop::IsPaused(tagSource& aSource) {
    CRecorder& aRecorder = *aSource.pRecorder;
    const std::chrono::milliseconds aAge(m_options.dwFlush);
    if (aRecorder.IsFull() || (aAge.count() > 0 && aRecorder.HasKeptFor(aAge)))
        aRecorder.WriteKept();
    if (aRecorder.IsFull() != aSource.bPaused) {
        aSource.bPaused = aRecorder.IsFull();
        m_progress.Erase();
        Warn("recording " + aSource.Name() +
             (aSource.bPaused ? " waits: no space left on the device" : " goes on"));
    }
    return aSource.bPaused;
}

/// The next part begins when the files of this one have all bytes.
bool CRecordLoop::MustWaitForOthers(const tagSource& aSource) {
    return m_options.aPlan.bWaitWhenFull && m_limits.IsPartFull(aSource.pRecorder->GetBytes()) &&
           WriteKept();
}

/// Returns whether the disk is full for one of the streams.
bool CRecordLoop::WriteKept() {
    for (const auto& pSource : m_vecSources)
        if (pSource->pRecorder) pSource->pRecorder->WriteKept();
    return std::any_of(m_vecSources.begin(), m_vecSources.end(), [](const auto& pSource) {
        return pSource->pRecorder && pSource->pRecorder->IsFull();
    });
}

/// Returns when everything that was read is written, or when the process is interrupted.
void CRecordLoop::WaitForSpace() {
    std::vector<bool> vecReady;
    while (!System::IsInterrupted() && WriteKept()) {
        for (const auto& pSource : m_vecSources)
            if (!pSource->bEnded) IsPaused(*pSource);
        System::WaitForInputs({}, -1, c_nSpaceLook, vecReady);
    }
}

/// Adds the failures to the progress, and returns them as text.
std::string CRecordLoop::NoteLoss() {
    std::uint64_t qwFailed = 0, qwLost = 0;
    for (const auto& pSource : m_vecSources) {
        if (pSource->strError.empty()) continue;
        ++qwFailed;
        qwLost += pSource->GetTotals().qwLost;
    }
    m_progress.SetFields({{"failed_streams", qwFailed}, {"lost_bytes", qwLost}});
    return qwFailed == 0 ? ""
                         : std::to_string(qwFailed) + " failed, " +
                               ByteSize(static_cast<double>(qwLost)) + " lost";
}

void CRecordLoop::BeginPart(CmUint32 dwNumber) {
    m_pPart = std::make_unique<CRecordPart>(m_options, dwNumber, m_vecSources);
    m_limits.BeginPart(m_pPart->GetDirectory(), m_vecSources.size() * c_qwGatherBlock);
}

void CRecordLoop::EndPart(const std::string& strReason) {
    m_pPart->Close();
    ReportFailures();  // before the losses below, because a failure has the reason of its losses
    tagPartResult aResult{m_pPart->GetNumber(), 0, strReason};
    for (const auto& pSource : m_vecSources) {
        if (!pSource->pRecorder) continue;
        const std::uint64_t qwLost = pSource->pRecorder->CountLostBytes();
        if (pSource->strError.empty() && qwLost > 0)
            Report(*pSource, Grouped(qwLost) + " bytes are missing from its file");
        aResult.qwStored += pSource->pRecorder->CountStoredBytes();
    }
    m_bNoteFailure = !m_pPart->WriteNotes(strReason) || m_bNoteFailure;
    m_pPart.reset();
    for (const auto& pSource : m_vecSources)
        if (pSource->pRecorder) pSource->EndPart();
    m_vecParts.push_back(std::move(aResult));
}

/// nLength bytes of the source were read and belong to the next part.
void CRecordLoop::BeginNextPart(const tagSource& aSource, std::size_t nLength) {
    const CmUint32 dwNumber = m_pPart->GetNumber();
    EndPart("split");
    try {
        BeginPart(FindFreeNumber(m_options.aPlan, dwNumber));
    } catch (const CFailure& aFailure) {
        throw CFailure(std::string(aFailure.what()) + "; " + Grouped(nLength) + " bytes of " +
                           aSource.Name() + " are lost",
                       Exit_Damage);
    }
}
