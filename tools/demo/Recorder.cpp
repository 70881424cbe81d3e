#include "tools/demo/Recorder.h"

#include <algorithm>

#include "async/Shutdown.h"
#include "platform/CmCallerThread.h"
#include "tools/HostPath.h"
#include "tools/demo/DemoError.h"
#include "tools/demo/Progress.h"

namespace {

/// The library queues without a limit of its own, so a host that reads faster than the disk writes
/// holds itself back: this much may be under way.
constexpr std::uint64_t c_qwMostPending = 8 * 1024 * 1024;
constexpr CmUint32 c_dwWaitMilliseconds = 2;

const char* OperationName(CCacheFileManager::OpType aOpType) {
    switch (aOpType) {
        case CCacheFileManager::Op_Open:
            return "open";
        case CCacheFileManager::Op_Close:
            return "close";
        case CCacheFileManager::Op_Read:
            return "read";
        case CCacheFileManager::Op_Write:
            return "write";
    }
    return "unknown operation";
}

CWriteFileHandler* CreateHandler(CmUint32 dwRecordID) {
    CWriteFileHandler* const pHandler =
        CCacheFileManager::Instance().CreateWriteFileHandler(dwRecordID, 1);
    if (!pHandler) Check("create a write handler", CACHE_ERR_OUT_OF_MEMORY);
    return pHandler;
}

}  // namespace

std::string RecordingDirectory(const std::string& strDirectory, CmUint32 dwRecordID) {
    return strDirectory + "/" + std::to_string(dwRecordID) + "/";
}

std::string RecordFileName(const tagFileDescriber& aDescriber) {
    return std::to_string(aDescriber.wDataType) + CCacheFileManager::s_cFileSeparator +
           std::to_string(aDescriber.dwFileID) + CCacheFileManager::s_cFileMidSeparator +
           std::to_string(aDescriber.byFileType) + CCacheFileManager::s_cFileEndSeparator + "dat";
}

CStreamRecorder::CStreamRecorder(ISource& aSource, CmUint32 dwRecordID,
                                 const std::string& strDirectory)
    : m_source(aSource),
      m_pHandler(CreateHandler(dwRecordID)),
      m_strPath(RecordingDirectory(strDirectory, dwRecordID) +
                RecordFileName(aSource.GetDescriber())) {
    m_recorded.strFile = RecordFileName(aSource.GetDescriber());
    Check(Describe("initialize"), m_pHandler->Initialize(this));
}

void CStreamRecorder::Open() {
    m_time.Restart();
    m_source.Rewind();
    Check(Describe("open"), m_pHandler->OpenWritingFile(m_recorded.strFile, m_dwHandle));
}

bool CStreamRecorder::Step() {
    if (m_dwHandle == 0) return false;
    if (!m_source.Next(m_strPiece)) {
        Close();
        return false;
    }
    Check(Describe("write"),
          m_pHandler->WriteData(
              m_dwHandle, reinterpret_cast<const unsigned char*>(m_strPiece.data()),
              static_cast<CmUint32>(m_strPiece.size()), CCacheFileManager::GetMaxDword()));
    m_recorded.qwBytes += m_strPiece.size();
    ++m_recorded.qwPieces;
    return true;
}

void CStreamRecorder::Close() {
    Check(Describe("close"), m_pHandler->CloseFile(m_dwHandle));
    m_dwHandle = 0;
    m_recorded.dSeconds = m_time.GetSeconds();
}

void CStreamRecorder::ThrowFailure() const {
    if (!m_strFailure.empty()) throw CDemoError(m_strFailure);
}

void CStreamRecorder::OnFileOpStatus(CCacheFileManager::LinkType /*aLinkType*/,
                                     CCacheFileManager::OpType aOpType, CmInt32 aResult) {
    ++m_recorded.qwCallbacks;
    if (aOpType == CCacheFileManager::Op_Open) m_bOpenReported = true;
    if (!m_strFailure.empty()) return;  // the first one is the cause
    if (!CCmCallerThread::IsCurrent())
        m_strFailure = Describe("a report came on a thread that is not the host's");
    else if (aResult != CACHE_OK)
        m_strFailure = Describe(OperationName(aOpType)) + ": " + ResultText(aResult);
}

void CStreamRecorder::OnDataReady(unsigned char* lpData, CmUint32 /*dwLength*/,
                                  const tagDataInfo& /*aDataInfo*/) {
    delete[] lpData;  // nothing was asked for
}

std::string CStreamRecorder::Describe(const char* lpStep) const {
    return m_source.GetName() + " into " + m_strPath + ": " + lpStep;
}

CRecorder::CRecorder(Sources& vecSources, CmUint32 dwRecordID, const std::string& strDirectory) {
    CCacheFileManager::Instance().SetTempHomeDir(HostDirectory(strDirectory));
    for (const std::unique_ptr<ISource>& pSource : vecSources)
        m_vecStreams.push_back(
            std::make_unique<CStreamRecorder>(*pSource, dwRecordID, strDirectory));
}

void CRecorder::Record(CProgress& aProgress) {
    OpenAll();
    while (StepAll()) {
        RunCallbacks(0);
        HoldBack();
        aProgress.Show(GetGiven() - CCacheFileManager::GetPendingBytes());
    }
    // The shutdown runs the callbacks too: afterwards nothing is under way any more.
    Check("shut down", CacheFileShutdown());
    ThrowFailure();
    aProgress.Show(GetGiven());
}

/// All files are opened before the first piece: each open is reported, once.
void CRecorder::OpenAll() {
    for (const auto& pStream : m_vecStreams) pStream->Open();
    while (!std::all_of(m_vecStreams.begin(), m_vecStreams.end(),
                        [](const auto& pStream) { return pStream->IsOpenReported(); }))
        RunCallbacks(c_dwWaitMilliseconds);
}

/// One step of each stream; false when all are closed.
bool CRecorder::StepAll() {
    bool bMore = false;
    for (const auto& pStream : m_vecStreams) bMore = pStream->Step() || bMore;
    return bMore;
}

/// Waits while too much is under way, so that memory stays small however large the sources are.
void CRecorder::HoldBack() {
    while (CCacheFileManager::GetPendingBytes() > c_qwMostPending)
        RunCallbacks(c_dwWaitMilliseconds);
}

void CRecorder::RunCallbacks(CmUint32 dwMilliseconds) {
    Check("run callbacks", CCmCallerThread::WaitAndRun(dwMilliseconds));
    ThrowFailure();
}

void CRecorder::ThrowFailure() const {
    for (const auto& pStream : m_vecStreams) pStream->ThrowFailure();
}

std::uint64_t CRecorder::GetGiven() const {
    std::uint64_t qwGiven = 0;
    for (const auto& pStream : m_vecStreams) qwGiven += pStream->GetRecorded().qwBytes;
    return qwGiven;
}

std::vector<tagRecorded> CRecorder::GetRecorded() const {
    std::vector<tagRecorded> vecRecorded;
    for (const auto& pStream : m_vecStreams) vecRecorded.push_back(pStream->GetRecorded());
    return vecRecorded;
}
