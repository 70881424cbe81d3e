#include "fileop/BufferDecorate.h"

#include <exception>
#include <new>
#include <utility>

#include "fileop/BlockStore.h"
#include "fileop/FileLedger.h"
#include "platform/CmTraceLine.h"

IFileOperation* CFileOperationFactory::CreateBufferDecorate(IFileOperation* pFile,
                                                            CmUint32 dwBufferSize) {
    return new (std::nothrow) CBufferDecorate(pFile, dwBufferSize);
}

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
    return Write(strData.data(), strData.size(), dwOffset);
}

/// Most appends only add to the gathered bytes, and need none of the other checks. The age is
/// checked first: another thread may be flushing a file that is in its list.
CmInt32 CBufferDecorate::WriteBytes(const char* lpData, std::size_t nLength, CmUint32 dwOffset) {
    if (m_age.IsUnused() && dwOffset == CCacheFileManager::GetMaxDword() &&
        nLength < m_dwBufferSize && m_strBuffer.size() + nLength < m_dwBufferSize &&
        m_strBuffer.capacity() >= m_dwBufferSize && m_pFile) {
        m_strBuffer.append(lpData, nLength);
        return CACHE_OK;
    }
    return Write(lpData, nLength, dwOffset);
}

CmInt32 CBufferDecorate::GiveData(CCmString&& strData, CmUint32 dwOffset) {
    return Write(strData.data(), strData.size(), dwOffset);
}

CmInt32 CBufferDecorate::Write(const char* lpData, std::size_t nLength, CmUint32 dwOffset) {
    if (!m_pFile) return CACHE_ERR_NOT_OPEN;
    m_age.BeforeUse();
    const CmInt32 lResult = dwOffset == CCacheFileManager::GetMaxDword()
                                ? Append(lpData, nLength)
                                : WritePositioned(lpData, nLength, dwOffset);
    m_age.AfterWrite([&] { return !m_strBuffer.empty(); });
    return lResult;
}

CmInt32 CBufferDecorate::WritePositioned(const char* lpData, std::size_t nLength,
                                         CmUint32 dwOffset) {
    if (!m_strBuffer.empty() && PassOn(m_strBuffer.size()) != CACHE_OK)
        TraceError("CBufferDecorate::WriteData->Write buffer data error", " this=", this);
    return m_pFile->WriteBytes(lpData, nLength, dwOffset);
}

std::uint64_t CBufferDecorate::BytesToQueue(std::uint64_t qwLength, CmUint32 dwOffset) {
    m_age.BeforeUse();
    const std::uint64_t qwTogether = m_strBuffer.size() + qwLength;
    const bool bGathers =
        dwOffset == CCacheFileManager::GetMaxDword() && qwTogether < m_dwBufferSize;
    return m_pFile && !bGathers ? m_pFile->BytesToQueue(qwTogether, dwOffset) : 0;
}

CmInt32 CBufferDecorate::Append(const char* lpData, std::size_t nLength) {
    const std::size_t nAccepted = m_strBuffer.size();
    if (nAccepted == 0 && nLength >= m_dwBufferSize)  // nothing is gained by copying it
        return m_pFile->WriteBytes(lpData, nLength, CCacheFileManager::GetMaxDword());
    try {
        const std::size_t nCapacity = m_strBuffer.capacity();
        if (nCapacity < m_dwBufferSize || nLength > nCapacity - nAccepted) Enlarge(nLength);
        m_strBuffer.append(lpData, nLength);
    } catch (const std::exception&) {  // no memory, or more than a string can hold
        TraceError("CBufferDecorate::WriteData->Low memory to gather the data", " this=", this);
        return CACHE_ERR_OUT_OF_MEMORY;
    }
    return m_strBuffer.size() < m_dwBufferSize ? CmInt32{CACHE_OK} : PassOn(nAccepted);
}

/// Makes the buffer large enough for nLength more bytes. An empty buffer becomes large enough for a
/// block and one more piece of this length, so that pieces of equal length never need a larger one.
/// A buffer that is not empty grows only if this piece completes the block, which is then passed
/// on.
void CBufferDecorate::Enlarge(std::size_t nLength) {
    const bool bEmpty = m_strBuffer.empty();
    const std::size_t nNeeded = (bEmpty ? m_dwBufferSize : m_strBuffer.size()) + nLength;
    CCmString strLarger =
        CBlockStore::Instance().Take(nNeeded, bEmpty ? MaxKeptCapacity() : 2 * nNeeded);
    strLarger.append(m_strBuffer);
    m_strBuffer.swap(strLarger);
    CBlockStore::Instance().Give(std::move(strLarger));
}

/// Appends the gathered bytes to the file and empties the buffer. The first nAccepted bytes are
/// from calls that have returned 0; the others are from the running call.
CmInt32 CBufferDecorate::PassOn(std::size_t nAccepted) {
    const CmInt32 lResult =
        m_pFile->GiveData(std::move(m_strBuffer), CCacheFileManager::GetMaxDword());
    m_age.OnEmptied();
    m_strBuffer.clear();  // its contents are unspecified now
    if (m_strBuffer.capacity() > MaxKeptCapacity()) {
        CBlockStore::Instance().Give(std::move(m_strBuffer));
        CCmString().swap(m_strBuffer);  // frees it if the store has not taken it
    }
    if (lResult != CACHE_OK) CFileLedger::LoseGathered(*m_pFile, nAccepted);
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
    m_age.BeforeUse();
    if (!m_strBuffer.empty()) PassOn(m_strBuffer.size());
    m_pFile->Flush();
}

CmInt32 CBufferDecorate::Sync(CmUint32 dwHandle) {
    if (!m_pFile) return CACHE_ERR_NOT_OPEN;
    m_age.BeforeUse();
    const CmInt32 lPassedOn = m_strBuffer.empty() ? CmInt32{CACHE_OK} : PassOn(m_strBuffer.size());
    return lPassedOn != CACHE_OK ? lPassedOn : m_pFile->Sync(dwHandle);
}

CmInt32 CBufferDecorate::GetFreeSpace(std::uint64_t& qwBytes) {
    return m_pFile ? m_pFile->GetFreeSpace(qwBytes) : CmInt32{CACHE_ERR_NOT_OPEN};
}
