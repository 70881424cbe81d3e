#include "download/IndexReader.h"

#include <new>

tagRecordRead CIndexReader::ReadFileHeader(tagQXFFileHeader& aHeader) {
    if (!LoadBlock(0, c_dwFirstBlock)) return ReadRecord(m_file, 0, aHeader);
    const bool bParsed = BuildQXFFileHeader(m_lpBlock, aHeader) == CACHE_OK;
    return {bParsed ? tagRecordRead::End_Whole : tagRecordRead::End_Malformed, CACHE_OK,
            c_dwFileHeaderSize};
}

const unsigned char* CIndexReader::ReadOutsideBlock(std::uint64_t qwOffset, std::uint64_t qwStep,
                                                    CmUint32 dwLeft) {
    m_lResult = CACHE_OK;
    m_dwLength = 0;
    if (qwOffset > 0xFFFFFFFF) return nullptr;
    const CmUint32 dwOffset = static_cast<CmUint32>(qwOffset);
    const std::uint64_t qwNeeded =
        std::max<std::uint64_t>(qwStep, c_dwEntrySize) * (dwLeft - 1) + c_dwEntrySize;
    const auto dwSize = static_cast<CmUint32>(std::min<std::uint64_t>(qwNeeded, c_dwBlockSize));
    if (!IsBlockDue(dwOffset, dwSize) || !LoadBlock(dwOffset, dwSize)) return ReadAlone(dwOffset);
    return m_lpBlock;
}

/// The entry may begin in the last block and end after it.
bool CIndexReader::IsBlockDue(CmUint32 dwOffset, CmUint32 dwSize) {
    if (!m_bBlocks || m_nSteps < c_nStepsForBlock) return false;
    if (std::uint64_t{dwOffset} + c_dwEntrySize > m_qwReached) return true;
    if (m_qwCredit < dwSize) return false;
    m_qwCredit -= dwSize;
    return true;
}

bool CIndexReader::HasMemory(CmUint32 dwSize) {
    m_lpBlock = m_aFirst;
    if (dwSize <= sizeof m_aFirst) return true;
    if (!m_pLarge) m_pLarge.reset(new (std::nothrow) unsigned char[c_dwBlockSize]);
    m_lpBlock = m_pLarge.get();
    return m_lpBlock != nullptr;
}

/// Returns whether the block has an entry.
bool CIndexReader::LoadBlock(CmUint32 dwOffset, CmUint32 dwSize) {
    CmUint32 dwLength = dwSize;
    m_bBlocks = HasMemory(dwSize) && m_file.ReadData(m_lpBlock, dwOffset, dwLength) == CACHE_OK;
    if (!m_bBlocks) dwLength = 0;  // single reads from now on, so that a bad place is traced once
    m_qwReached = std::max(m_qwReached, std::uint64_t{dwOffset} + dwLength);
    m_qwBlockOffset = dwOffset;
    m_qwBegins = dwLength < c_dwEntrySize ? 0 : dwLength - c_dwEntrySize + 1;
    return m_qwBegins > 0;
}

const unsigned char* CIndexReader::ReadAlone(CmUint32 dwOffset) {
    m_dwLength = c_dwEntrySize;
    m_lResult = m_file.ReadData(m_aAlone, dwOffset, m_dwLength);
    return m_lResult == CACHE_OK && m_dwLength == c_dwEntrySize ? m_aAlone : nullptr;
}

void CCircleWatch::MoveMark(std::uint64_t qwOffset, std::size_t nKnown) {
    m_qwMark = qwOffset;
    m_nKnownAtMark = nKnown;
    m_dwSteps = 0;
    m_dwNextMove = m_dwNextMove < 0x80000000 ? m_dwNextMove * 2 : m_dwNextMove;
}
