#include "async/ResultEvents.h"

#include "platform/CmTraceLine.h"

CFileDataEvent::CFileDataEvent(IFileOpStatus* pReceive, unsigned char* lpBuffer, CmUint32 dwLength,
                               const tagDataInfo& aDataInfo)
    : ICmEvent(0),
      m_pReceive(pReceive),
      m_lpBuffer(lpBuffer),
      m_dwLength(dwLength),
      m_DataInfo(aDataInfo) {
    if (!pReceive)
        CM_ASSERTION("pReceive");
    else if (!lpBuffer)
        CM_ASSERTION("lpBuffer");
}

CFileDataEvent::~CFileDataEvent() { delete[] m_lpBuffer; }

CmInt32 CFileDataEvent::OnEventFire() {
    CM_CHECK(m_pReceive, "m_pReceive.Get( )", CACHE_ERR_INVALID_STATE);
    // The receiver owns the buffer from the start of the call, even if the callback throws.
    unsigned char* const lpBuffer = m_lpBuffer;
    m_lpBuffer = nullptr;
    m_pReceive->OnDataReady(lpBuffer, m_dwLength, m_DataInfo);
    return CACHE_OK;
}

CFileStatusEvent::CFileStatusEvent(IFileOpStatus* pReceive, const tagFileStatus& aStatus)
    : ICmEvent(0),
      m_pReceive(pReceive),
      m_LinkType(aStatus.aLinkType),
      m_OpType(aStatus.aOpType),
      m_lResult(aStatus.lResult) {
    if (!pReceive) CM_ASSERTION("pReceive");
}

CmInt32 CFileStatusEvent::OnEventFire() {
    CM_CHECK(m_pReceive, "m_pReceive.Get( )", CACHE_ERR_INVALID_STATE);
    m_pReceive->OnFileOpStatus(m_LinkType, m_OpType, m_lResult);
    return CACHE_OK;
}
