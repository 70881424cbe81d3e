#include "download/IndexReader.h"

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
    m_nFollowed = dwOffset == m_dwExpected ? m_nFollowed + 1 : 0;
    m_dwExpected = dwOffset + c_dwEntrySize;
    if (!IsInBlock(dwOffset) && !(m_nFollowed >= c_nFollowedForBlock && LoadBlock(dwOffset)))
        return m_file.ReadData(lpEntry, dwOffset, dwLength);
    std::memcpy(lpEntry, m_pBlock.get() + (dwOffset - m_dwBlockOffset), c_dwEntrySize);
    return CACHE_OK;
}

bool CIndexReader::LoadBlock(CmUint32 dwOffset) {
    if (!m_pBlock) return false;
    m_dwBlockOffset = dwOffset;
    m_dwBlockLength = c_dwBlockSize;
    if (m_file.ReadData(m_pBlock.get(), dwOffset, m_dwBlockLength) != CACHE_OK) {
        m_dwBlockLength = 0;
        m_pBlock.reset();  // no more of them: a bad place ahead is not to be told again and again
    }
    return IsInBlock(dwOffset);
}

bool CCircleWatch::IsBack(std::uint64_t qwOffset, std::size_t nKnown) {
    ++m_dwSteps;
    if (qwOffset == m_qwThere) return true;
    if (m_dwSteps < m_dwNextMove) return false;
    m_qwThere = qwOffset;
    m_nKnownThere = nKnown;
    m_dwSteps = 0;
    m_dwNextMove = m_dwNextMove < 0x80000000 ? m_dwNextMove * 2 : m_dwNextMove;
    return false;
}
