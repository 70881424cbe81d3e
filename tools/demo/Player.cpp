#include "tools/demo/Player.h"

#include <algorithm>
#include <vector>

#include "platform/CmCallerThread.h"
#include "tools/HostPath.h"
#include "tools/demo/DemoError.h"
#include "tools/demo/Recorder.h"
#include "tools/demo/Stopwatch.h"

namespace {

constexpr CmUint32 c_aRunLengths[] = {1, 4097, 65537, 333, 100003};
constexpr int c_nMostUnderWay = 8;
constexpr CmUint32 c_dwWaitMilliseconds = 1000;

CPlayFileHandler* CreateHandler(CmUint32 dwRecordID, bool bContainer, bool bAsync) {
    CPlayFileHandler* const pHandler =
        CCacheFileManager::Instance().CreatePlayFileHandler(dwRecordID, bContainer, bAsync);
    if (!pHandler) Check("create a play handler", CACHE_ERR_OUT_OF_MEMORY);
    return pHandler;
}

bool SameStream(const tagFileDescriber& aOne, const tagFileDescriber& aOther) {
    return aOne.wDataType == aOther.wDataType && aOne.byFileType == aOther.byFileType &&
           aOne.dwFileID == aOther.dwFileID;
}

}  // namespace

CSourceReader::CSourceReader(ISource& aSource) : m_source(aSource) { m_source.Rewind(); }

std::string CSourceReader::Read(std::size_t nLength) {
    std::string strRun;
    while (strRun.size() < nLength) {
        if (m_nUsed == m_strPiece.size()) {
            if (!m_source.Next(m_strPiece)) break;
            m_nUsed = 0;
        }
        const std::size_t nPart = std::min(nLength - strRun.size(), m_strPiece.size() - m_nUsed);
        strRun.append(m_strPiece, m_nUsed, nPart);
        m_nUsed += nPart;
    }
    return strRun;
}

CPlayer::CPlayer(CmUint32 dwRecordID, bool bContainer, bool bAsync)
    : m_bContainer(bContainer),
      m_bAsync(bAsync),
      m_pHandler(CreateHandler(dwRecordID, bContainer, bAsync)) {
    Check(Describe("initialize"), m_pHandler->Initialize(this));
}

void CPlayer::OpenRecordFiles(const Sources& vecSources) {
    for (const auto& pSource : vecSources) {
        const tagFileDescriber& aDescriber = pSource->GetDescriber();
        Check(Describe("open"),
              m_pHandler->OpenRecordFile(RecordFileName(aDescriber), aDescriber, 0));
    }
}

void CPlayer::OpenContainer(const std::string& strPath, const Sources& vecSources) {
    std::vector<tagFileDescriber> vecStreams;
    Check(Describe("open"), m_pHandler->OpenDownloadedFile(HostPath(strPath), vecStreams));
    const bool bSame =
        vecStreams.size() == vecSources.size() + 1 &&  // the conf stream holds the header
        std::equal(vecSources.begin(), vecSources.end(), vecStreams.begin(),
                   [](const auto& pSource, const tagFileDescriber& aDescriber) {
                       return SameStream(pSource->GetDescriber(), aDescriber);
                   });
    if (!bSame) throw CDemoError(Describe("it lists other streams than were packed"));
}

double CPlayer::Play(ISource& aSource) {
    const CStopwatch aTime;
    m_pSource = &aSource;
    m_pWanted = std::make_unique<CSourceReader>(aSource);
    m_qwCompared = 0;
    const tagFileDescriber& aDescriber = aSource.GetDescriber();
    const tagDataInfo aInfo{aDescriber.wDataType, aDescriber.dwFileID, 0, aDescriber.byFileType};
    std::size_t nRun = 0;
    for (std::uint64_t qwOffset = 0; qwOffset < aSource.GetSize();) {
        const CmUint32 dwLength = static_cast<CmUint32>(std::min<std::uint64_t>(
            c_aRunLengths[nRun++ % std::size(c_aRunLengths)], aSource.GetSize() - qwOffset));
        Ask(aInfo, qwOffset, dwLength);
        Await(c_nMostUnderWay - 1);
        qwOffset += dwLength;
    }
    Await(0);
    if (m_qwCompared != aSource.GetSize())
        throw CDemoError(Describe("only " + std::to_string(m_qwCompared) + " bytes came"));
    return aTime.GetSeconds();
}

void CPlayer::Ask(const tagDataInfo& aInfo, std::uint64_t qwOffset, CmUint32 dwLength) {
    std::unique_ptr<unsigned char[]> pBuffer(new unsigned char[dwLength]);
    ++m_nUnderWay;
    Check(Describe("read"),
          m_pHandler->ReadData(aInfo, pBuffer.get(), static_cast<CmUint32>(qwOffset), dwLength));
    pBuffer.release();  // the library's, until OnDataReady gets it
}

/// Runs callbacks until no more than so many reads are under way.
void CPlayer::Await(int nMostUnderWay) {
    while (m_bAsync && m_nUnderWay > nMostUnderWay && m_strFailure.empty())
        Check(Describe("run callbacks"), CCmCallerThread::WaitAndRun(c_dwWaitMilliseconds));
    if (!m_strFailure.empty()) throw CDemoError(m_strFailure);
}

void CPlayer::OnFileOpStatus(CCacheFileManager::LinkType /*aLinkType*/,
                             CCacheFileManager::OpType /*aOpType*/, CmInt32 aResult) {
    if (aResult != CACHE_OK && m_strFailure.empty()) m_strFailure = Describe(ResultText(aResult));
}

void CPlayer::OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                          const tagDataInfo& /*aDataInfo*/) {
    const std::unique_ptr<unsigned char[]> pBuffer(lpData);
    --m_nUnderWay;
    try {
        if (m_pWanted->Read(dwLength).compare(0, dwLength, reinterpret_cast<char*>(lpData),
                                              dwLength) != 0)
            m_strFailure =
                Describe("a difference behind " + std::to_string(m_qwCompared) + " equal bytes");
    } catch (const CDemoError& aError) {
        m_strFailure = aError.what();
    }
    m_qwCompared += dwLength;
}

std::string CPlayer::Describe(const std::string& strWhat) const {
    return std::string("playing ") + (m_pSource ? m_pSource->GetName() + " " : "") + "from the " +
           (m_bContainer ? "container" : "record files") +
           (m_bAsync ? ", asynchronous: " : ", synchronous: ") + strWhat;
}
