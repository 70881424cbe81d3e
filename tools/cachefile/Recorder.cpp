#include "tools/cachefile/Recorder.h"

#include <algorithm>
#include <cstring>

#include "async/Shutdown.h"
#include "platform/CmCallerThread.h"
#include "tools/HostPath.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"
#include "tools/cachefile/Trace.h"

namespace {

constexpr CmUint32 c_dwTickMilliseconds = 50;  // between looks for an interrupt

// 8 MiB keep the worker busy for longer than a pause lasts, also with a fast disk.
constexpr std::uint64_t c_qwMaxPending = 8 << 20;
constexpr CmUint32 c_dwPauseMilliseconds = 2;

constexpr std::size_t c_nBlock = 32768;  // what the library writes at once

}  // namespace

Shutdown::~Shutdown() { CacheFileShutdown(); }

std::string tagPlan::Directory() const { return strHome + "/" + std::to_string(dwRecordID); }

CRecorder::CRecorder(const tagPlan& aPlan, const tagFileDescriber& aDescriber)
    : m_plan(aPlan),
      m_describer(aDescriber),
      m_pHandler(CCacheFileManager::Instance().CreateWriteFileHandler(aPlan.dwRecordID,
                                                                      aPlan.bSync ? 0 : 1)) {}

CRecorder::~CRecorder() = default;

CmInt32 CRecorder::Open() {
    if (!m_pHandler) return m_lFailure = CACHE_ERR_OUT_OF_MEMORY;
    CCacheFileManager::Instance().SetTempHomeDir(HostDirectory(m_plan.strHome));
    Note(m_pHandler->Initialize(this));
    if (m_lFailure == CACHE_OK) {
        Note(m_pHandler->OpenWritingFile(StreamFileName(m_describer), m_dwHandle));
        m_strFileObject = Trace::LastFileObject();
    }
    while (m_lFailure == CACHE_OK && !m_plan.bSync && !m_bOpenReported) {
        if (System::IsInterrupted()) throw Interrupted();
        Note(CCmCallerThread::WaitAndRun(c_dwTickMilliseconds));
    }
    return m_lFailure;
}

void CRecorder::Write(const unsigned char* lpData, std::size_t nLength) {
    if (m_lFailure != CACHE_OK) return;
    m_qwBytes += nLength;
    ++m_qwPieces;
    m_checksum.Add(lpData, nLength);
    if (!m_plan.bWaitWhenFull) return WriteNow(lpData, nLength);
    if (m_vecKept.empty()) m_keptSince = std::chrono::steady_clock::now();
    m_vecKept.insert(m_vecKept.end(), lpData, lpData + nLength);
    if (m_vecKept.size() >= c_nBlock) WriteKept();
}

void CRecorder::WriteNow(const unsigned char* lpData, std::size_t nLength) {
    const CmInt32 lResult = m_pHandler->WriteData(
        m_dwHandle, lpData, static_cast<CmUint32>(nLength), CCacheFileManager::GetMaxDword());
    Note(lResult);
    if (lResult != CACHE_OK && m_plan.bSync) AddHole();
}

void CRecorder::WriteKept() {
    if (m_vecKept.empty() || m_lFailure != CACHE_OK) return;
    const CmInt32 lResult = AppendKept();
    m_bFull = lResult == CACHE_ERR_DISK_FULL;
    if (!m_bFull) Note(lResult);
    if (lResult == CACHE_OK) m_vecKept.clear();
}

/// Appends all kept bytes, or none. A flush returns no code. If it fails, a sync, which flushes
/// too, returns the code.
CmInt32 CRecorder::AppendKept() {
    const std::uint64_t qwBefore = CountStoredBytes();
    for (const bool bSync : {false, true}) {
        const CmInt32 lResult = m_pHandler->WriteData(m_dwHandle, m_vecKept.data(),
                                                      static_cast<CmUint32>(m_vecKept.size()),
                                                      CCacheFileManager::GetMaxDword());
        if (lResult != CACHE_OK) return lResult;
        if (bSync) return m_pHandler->SyncFile(m_dwHandle);
        m_pHandler->FlushData(m_dwHandle);
        if (CountStoredBytes() == qwBefore + m_vecKept.size()) break;
    }
    return CACHE_OK;
}

bool CRecorder::HasKeptFor(std::chrono::milliseconds aTime) const {
    return !m_vecKept.empty() && std::chrono::steady_clock::now() - m_keptSince >= aTime;
}

void CRecorder::AddHole() {
    m_pHandler->FlushData(m_dwHandle);
    tagFileLosses aLosses;
    m_pHandler->GetFileLosses(m_dwHandle, aLosses);
    const std::uint64_t qwKnown = aLosses.qwLost + m_qwRefused;
    const std::uint64_t qwMissing = CountLostBytes();
    if (qwMissing <= qwKnown) return;
    m_vecRefused.push_back({CountStoredBytes(), qwMissing - qwKnown, 0});
    m_qwRefused += qwMissing - qwKnown;
}

void CRecorder::AddRefusedToLosses() {
    auto& vecHoles = m_losses.vecHoles;
    m_losses.qwLost += m_qwRefused;
    vecHoles.insert(vecHoles.end(), m_vecRefused.begin(), m_vecRefused.end());
    std::stable_sort(vecHoles.begin(), vecHoles.end(),
                     [](const auto& a, const auto& b) { return a.qwOffset < b.qwOffset; });
}

tagFileLosses CRecorder::GetPresentLosses() const {
    if (m_dwHandle == 0) return m_losses;
    tagFileLosses aLosses;
    m_pHandler->GetFileLosses(m_dwHandle, aLosses);
    // The library counts bytes as lost that this recorder has kept and writes again.
    aLosses.qwLost =
        m_plan.bWaitWhenFull ? CountUnsyncedLosses(aLosses) : aLosses.qwLost + m_qwRefused;
    return aLosses;
}

void CRecorder::Close() {
    if (m_dwHandle == 0) return;
    WriteKept();
    m_pHandler->FlushData(m_dwHandle);
    if (m_plan.bSyncToDisk) Note(m_pHandler->SyncFile(m_dwHandle));
    WaitUntilWritten();
    AddRefusedToLosses();
    if (m_plan.bWaitWhenFull) AddKeptToLosses();
    Note(m_pHandler->CloseFile(m_dwHandle));
    m_dwHandle = 0;
}

void CRecorder::WaitUntilWritten() {
    const auto aIsWaiting = [&] {
        return m_losses.qwPending > 0 || (m_plan.bSyncToDisk && m_losses.qwUnsynced > 0);
    };
    while (m_pHandler->GetFileLosses(m_dwHandle, m_losses) == CACHE_OK && aIsWaiting())
        CCmCallerThread::WaitAndRun(c_dwPauseMilliseconds);
}

void CRecorder::AddKeptToLosses() {
    auto& vecHoles = m_losses.vecHoles;
    vecHoles.erase(std::remove_if(vecHoles.begin(), vecHoles.end(),
                                  [](const tagFileHole& a) { return a.bInPlace == 0; }),
                   vecHoles.end());
    if (!m_vecKept.empty()) vecHoles.push_back({CountStoredBytes(), m_vecKept.size(), 0});
    m_losses.qwLost = m_vecKept.size() + CountUnsyncedLosses(m_losses);
}

std::filesystem::path CRecorder::GetPath() const {
    return System::NativePath(m_plan.Directory()) / StreamFileName(m_describer);
}

std::string CRecorder::GetFailureText() const {
    const std::string strText =
        std::string(CacheFileResultText(m_lFailure)) + " (" + CacheFileResultName(m_lFailure) + ")";
    const int nErrno = Trace::FirstErrno(m_strFileObject);
    return nErrno != 0 ? strText + ": " + std::strerror(nErrno) : strText;
}

std::uint64_t CRecorder::CountStoredBytes() const {
    std::error_code aError;
    const std::uintmax_t nSize = std::filesystem::file_size(GetPath(), aError);
    return aError ? 0 : nSize;
}

std::uint64_t CRecorder::CountLostBytes() const {
    const std::uint64_t qwStored = CountStoredBytes();
    return (m_qwBytes > qwStored ? m_qwBytes - qwStored : 0) + CountUnsyncedLosses(m_losses);
}

std::uint64_t CRecorder::CountUnsyncedLosses(const tagFileLosses& aLosses) {
    std::uint64_t qwLost = 0;
    for (const tagFileHole& aHole : aLosses.vecHoles)
        if (aHole.bInPlace != 0) qwLost += aHole.qwLength;
    return qwLost;
}

std::string CRecorder::FindChecksum() const {
    if (CountStoredBytes() == m_qwBytes && m_losses.qwLost == 0) return m_checksum.GetText();
    return ChecksumOfFile(GetPath());
}

void CRecorder::OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType aOpType,
                               CmInt32 aResult) {
    if (aOpType == CCacheFileManager::Op_Open) m_bOpenReported = true;
    Note(aResult);
}

void CRecorder::OnDataReady(unsigned char* lpData, CmUint32, const tagDataInfo&) {
    delete[] lpData;
}

void CRecorder::Note(CmInt32 lResult) {
    if (m_lFailure == CACHE_OK) m_lFailure = lResult;
}

void HoldBack() {
    while (CCacheFileManager::GetPendingBytes() > c_qwMaxPending)
        CCmCallerThread::WaitAndRun(c_dwPauseMilliseconds);
}
