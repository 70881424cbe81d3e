#include "tests/support/Player.h"

#include <utility>

Player::Player(Mode aMode, IFileOpSink* pSink, Use aUse)
    : m_pHandler(CCacheFileManager::Instance().CreatePlayFileHandler(7, aUse, aMode)) {
    EXPECT_EQ(m_pHandler->Initialize(pSink), 0);
}

CmInt32 Player::Open(const CCmString& strPath) {
    m_vecStreams.push_back({});  // the open must remove this entry
    return m_pHandler->OpenDownloadedFile(strPath, m_vecStreams);
}

CmInt32 Player::OpenFile(const CCmString& strName, const tagFileDescriber& aDescriber, int bWrite) {
    return m_pHandler->OpenRecordFile(strName, aDescriber, bWrite);
}

CmInt32 Player::Write(const tagDataInfo& aInfo, const CCmString& strBytes, CmUint32 dwOffset) {
    return m_pHandler->WriteData(aInfo, BytesOf(strBytes), static_cast<CmUint32>(strBytes.size()),
                                 dwOffset);
}

CmInt32 Player::Read(const tagDataInfo& aInfo, CmUint32 dwOffset, CmUint32 dwLength,
                     CmUint32 dwBuffer) {
    auto* const lpBuffer = new unsigned char[dwBuffer ? dwBuffer : dwLength];
    const CmInt32 lResult = m_pHandler->ReadData(aInfo, lpBuffer, dwOffset, dwLength);
    if (lResult != 0) delete[] lpBuffer;
    return lResult;
}

CCmString Player::SyncRead(const tagDataInfo& aInfo, CmUint32 dwOffset, CmUint32 dwLength) {
    CCmString strBytes(dwLength + 1, '\0');
    const CmInt32 lResult = m_pHandler->SyncReadData(
        aInfo, reinterpret_cast<unsigned char*>(strBytes.data()), dwOffset, dwLength);
    return lResult == 0 ? strBytes.substr(0, dwLength) : std::to_string(lResult);
}

void Player::Destroy() {
    if (CPlayFileHandler* const pHandler = std::exchange(m_pHandler, nullptr)) pHandler->Destroy();
}
