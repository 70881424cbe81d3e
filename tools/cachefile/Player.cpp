#include "tools/cachefile/Player.h"

#include "tools/HostPath.h"
#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/Streams.h"
#include "tools/cachefile/System.h"

CPlayer::CPlayer(const tagRecording& aRecording, const tagFileDescriber* pStream)
    : m_pHandler(CCacheFileManager::Instance().CreatePlayFileHandler(
          0, aRecording.IsContainer() ? 1 : 0, 0)) {
    CmInt32 lResult = m_pHandler ? m_pHandler->Initialize(this) : CmInt32{CACHE_ERR_OUT_OF_MEMORY};
    if (lResult == CACHE_OK && aRecording.IsContainer()) {
        std::vector<tagFileDescriber> vecStreams;
        lResult = m_pHandler->OpenDownloadedFile(HostPath(System::Utf8Path(aRecording.strPath)),
                                                 vecStreams);
        if (lResult == CACHE_ERR_BAD_CONTAINER && !vecStreams.empty()) lResult = CACHE_OK;
    } else if (lResult == CACHE_OK) {
        m_pHandler->SetHomeDir(HostDirectory(aRecording.strPath));
        lResult = m_pHandler->OpenRecordFile(StreamFileName(*pStream), *pStream, 0);
    }
    if (lResult != CACHE_OK)
        throw CFailure(ResultText("cannot open " + Printable(aRecording.strPath), lResult));
}

CPlayer::~CPlayer() = default;

CmInt32 CPlayer::Read(const tagFileDescriber& aStream, std::uint64_t qwOffset, CmUint32 dwLength) {
    if (qwOffset > CCacheFileManager::GetMaxDword()) return CACHE_ERR_INVALID_ARG;
    m_dwLength = 0;
    std::unique_ptr<unsigned char[]> pBuffer(new unsigned char[dwLength]);
    const CmInt32 lResult = m_pHandler->ReadData(RequestFor(aStream), pBuffer.get(),
                                                 static_cast<CmUint32>(qwOffset), dwLength);
    if (lResult == CACHE_OK) pBuffer.release();  // OnDataReady has taken it
    return lResult;
}

void CPlayer::OnFileOpStatus(CCacheFileManager::LinkType, CCacheFileManager::OpType, CmInt32) {}

void CPlayer::OnDataReady(unsigned char* lpData, CmUint32 dwLength, const tagDataInfo&) {
    m_pData.reset(lpData);
    m_dwLength = dwLength;
}
