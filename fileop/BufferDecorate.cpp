#include "fileop/BufferDecorate.h"

#include <exception>
#include <utility>

#include "fileop/BlockStore.h"
#include "platform/CmTrace.h"

CBufferDecorate::CBufferDecorate(IFileOperation* pFile, CmUint32 dwBufferSize)
    : m_pFile(pFile), m_dwBufferSize(dwBufferSize) {
    if (!pFile) CM_ASSERTION("pFile");
}

CBufferDecorate::~CBufferDecorate() {
    CBufferDecorate::Close();
    CBlockStore::Instance().Give(std::move(m_strBuffer));
}

CmInt32 CBufferDecorate::Open(const CCmString& strPath, int bWrite) {
    return m_pFile ? m_pFile->Open(strPath, bWrite) : CmInt32{CACHE_ERR_NOT_OPEN};
}

CmInt32 CBufferDecorate::Close() {
    if (!m_pFile) return CACHE_ERR_NOT_OPEN;
    Flush();
    return m_pFile->Close();
}

CmInt32 CBufferDecorate::WriteData(const CCmString& strData, CmUint32 dwOffset) {
    return CBufferDecorate::WriteBytes(strData.data(), strData.size(), dwOffset);
}

CmInt32 CBufferDecorate::WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) {
    if (!m_pFile) return CACHE_ERR_NOT_OPEN;
    if (dwOffset == CCacheFileManager::GetMaxDword()) return Append(lpData, nLength);
    if (!m_strBuffer.empty() && PassOn(m_strBuffer.size()) != CACHE_OK)
        CM_TRACE_ERROR("CBufferDecorate::WriteData->Write buffer data error"
                       << " this=" << this);
    return m_pFile->WriteBytes(lpData, nLength, dwOffset);
}

std::uint64_t CBufferDecorate::BytesToQueue(std::uint64_t qwLength, CmUint32 dwOffset) {
    const std::uint64_t qwTogether = m_strBuffer.size() + qwLength;
    const bool bGathers =
        dwOffset == CCacheFileManager::GetMaxDword() && qwTogether < m_dwBufferSize;
    return m_pFile && !bGathers ? m_pFile->BytesToQueue(qwTogether, dwOffset) : 0;
}

CmInt32 CBufferDecorate::Append(const char* lpData, std::size_t nLength) {
    const std::size_t nAccepted = m_strBuffer.size();
    if (nAccepted == 0 && nLength >= m_dwBufferSize)  // a block by itself
        return m_pFile->WriteBytes(lpData, nLength, CCacheFileManager::GetMaxDword());
    try {
        if (m_strBuffer.capacity() < m_dwBufferSize && nAccepted == 0)
            m_strBuffer = CBlockStore::Instance().Take(m_dwBufferSize + nLength);
        m_strBuffer.append(lpData, nLength);
    } catch (const std::exception&) {  // no memory, or more than a string can hold
        CM_TRACE_ERROR("CBufferDecorate::WriteData->Low memory to gather the data"
                       << " this=" << this);
        return CACHE_ERR_OUT_OF_MEMORY;
    }
    return m_strBuffer.size() < m_dwBufferSize ? CmInt32{CACHE_OK} : PassOn(nAccepted);
}

/// Appends the gathered bytes to the file and empties the buffer. Of those bytes the first
/// nAccepted came with calls that have returned 0; the rest belongs to the call that runs.
CmInt32 CBufferDecorate::PassOn(std::size_t nAccepted) {
    const CmInt32 lResult = m_pFile->GiveData(m_strBuffer, CCacheFileManager::GetMaxDword());
    m_strBuffer.clear();
    if (lResult != CACHE_OK) CCacheFileManager::AddLostBytes(nAccepted);
    return lResult;
}

CmInt32 CBufferDecorate::ReadData(unsigned char* lpBuffer, CmUint32 dwOffset, CmUint32& dwLength) {
    return m_pFile ? m_pFile->ReadData(lpBuffer, dwOffset, dwLength) : CmInt32{CACHE_ERR_NOT_OPEN};
}

CmInt32 CBufferDecorate::AsyncReadData(const tagDataInfo& aDataInfo, unsigned char* lpBuffer,
                                       CmUint32 dwOffset, CmUint32& dwLength) {
    return m_pFile ? m_pFile->AsyncReadData(aDataInfo, lpBuffer, dwOffset, dwLength)
                   : CmInt32{CACHE_ERR_NOT_OPEN};
}

const CCmString& CBufferDecorate::GetFileName() {
    return m_pFile ? m_pFile->GetFileName() : m_strBuffer;  // nothing is gathered without a file
}

void CBufferDecorate::Flush() {
    if (!m_pFile) return;
    if (!m_strBuffer.empty()) PassOn(m_strBuffer.size());
    m_pFile->Flush();
}
