#include "download/IndexReader.h"

#include <algorithm>
#include <cstring>
#include <new>

CIndexReader::CIndexReader(IFileOperation& aFile)
    : m_file(aFile), m_pBlock(new (std::nothrow) unsigned char[c_dwBlockSize]) {}

CmInt32 CIndexReader::ReadEntry(std::uint64_t qwOffset, unsigned char* lpEntry,
                                CmUint32& dwLength) {
    dwLength = 0;
    if (qwOffset > 0xFFFFFFFF) return CACHE_OK;
    const CmUint32 dwOffset = static_cast<CmUint32>(qwOffset);
    dwLength = c_dwEntrySize;
    const bool bForward = dwOffset > m_dwLast && dwOffset - m_dwLast < c_dwLongestStep;
    m_nSteps = bForward ? m_nSteps + 1 : 0;
    m_dwLast = dwOffset;
    m_qwCredit += c_dwCreditPerEntry;
    if (!IsInBlock(dwOffset) && !(IsBlockDue(dwOffset) && LoadBlock(dwOffset)))
        return m_file.ReadData(lpEntry, dwOffset, dwLength);
    std::memcpy(lpEntry, m_pBlock.get() + (dwOffset - m_dwBlockOffset), c_dwEntrySize);
    return CACHE_OK;
}

/// The entry may begin in the last block and end after it.
bool CIndexReader::IsBlockDue(CmUint32 dwOffset) {
    if (!m_pBlock || m_nSteps < c_nStepsForBlock) return false;
    if (std::uint64_t{dwOffset} + c_dwEntrySize > m_qwReached) return true;
    if (m_qwCredit < c_dwBlockSize) return false;
    m_qwCredit -= c_dwBlockSize;
    return true;
}

bool CIndexReader::LoadBlock(CmUint32 dwOffset) {
    m_dwBlockOffset = dwOffset;
    m_dwBlockLength = c_dwBlockSize;
    if (m_file.ReadData(m_pBlock.get(), dwOffset, m_dwBlockLength) != CACHE_OK) {
        m_dwBlockLength = 0;
        m_pBlock.reset();  // single reads from now on, so that a bad place is traced once
    }
    m_qwReached = std::max(m_qwReached, std::uint64_t{dwOffset} + m_dwBlockLength);
    return IsInBlock(dwOffset);
}

bool CCircleWatch::HasReturned(std::uint64_t qwOffset, std::size_t nKnown) {
    ++m_dwSteps;
    if (qwOffset == m_qwMark) return true;
    if (m_dwSteps < m_dwNextMove) return false;
    m_qwMark = qwOffset;
    m_nKnownAtMark = nKnown;
    m_dwSteps = 0;
    m_dwNextMove = m_dwNextMove < 0x80000000 ? m_dwNextMove * 2 : m_dwNextMove;
    return false;
}
