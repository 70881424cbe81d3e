#include "download/ContainerIndex.h"

#include <algorithm>
#include <new>
#include <vector>

#include "download/IndexReader.h"
#include "platform/CmFile.h"
#include "platform/CmTrace.h"

namespace {

/// The empty answers of an object without memory.
const tagQXFFileHeader c_aNoHeader{};

CmInt32 OpenFile(const CCmString& strPath, CRefPtr<IFileOperation>& pFile,
                 std::uint64_t& qwFileSize) {
    pFile = CFileOperationFactory::Instance()->CreateLocalFile(1);
    if (!pFile) return CACHE_ERR_OUT_OF_MEMORY;
    const CmInt32 lResult = pFile->Open(strPath, 0);
    if (lResult != CACHE_OK) return lResult;
    std::FILE* const pStream = CmFile::Open(strPath, CmFile::Open_Read, CmFile::Path_Utf8);
    const std::int64_t nSize = pStream ? CmFile::Size(pStream) : -1;
    if (pStream) CmFile::Close(pStream);
    if (nSize < 0) return CACHE_ERR_FAILED;
    qwFileSize = static_cast<std::uint64_t>(nSize);
    return CACHE_OK;
}

}  // namespace

/// Its operations throw std::bad_alloc.
class CContainerIndex::Impl {
 public:
    CmInt32 Open(const CCmString& strPath);

    CRefPtr<IFileOperation> m_pFile;
    std::uint64_t m_qwFileSize = 0;
    tagQXFFileHeader m_FileHeader{};
    std::vector<tagIndexEntry> m_vecEntries;
    EndOfWalk m_EndOfWalk = Walk_None;
    std::uint64_t m_qwEndOffset = 0;
    bool m_bConfFileHeader = false;
    tagEntryFileHeader m_ConfFileHeader{};

 private:
    CmInt32 ReadFileHeader();
    CmInt32 Walk();
    CmInt32 EndWalk(EndOfWalk aEnd, CmInt32 lResult);
    void CutCircle();
    void ReadConfFileHeader();
};

CmInt32 CContainerIndex::Impl::Open(const CCmString& strPath) {
    CM_CHECK(!m_pFile, "!m_pFile", CACHE_ERR_INVALID_STATE);
    CmInt32 lResult = OpenFile(strPath, m_pFile, m_qwFileSize);
    if (lResult == CACHE_OK) lResult = ReadFileHeader();
    if (lResult == CACHE_OK) lResult = Walk();
    ReadConfFileHeader();
    return lResult;
}

CmInt32 CContainerIndex::Impl::ReadFileHeader() {
    unsigned char aBytes[c_dwFileHeaderSize];
    CmUint32 dwLength = c_dwFileHeaderSize;
    const CmInt32 lResult = m_pFile->ReadData(aBytes, 0, dwLength);
    if (lResult != CACHE_OK) return lResult;
    if (dwLength != c_dwFileHeaderSize) return CACHE_ERR_BAD_CONTAINER;
    if (BuildQXFFileHeader(aBytes, m_FileHeader) != CACHE_OK) return CACHE_ERR_FAILED;
    return IsContainerHeader(m_FileHeader) ? CACHE_OK : CACHE_ERR_BAD_CONTAINER;
}

CmInt32 CContainerIndex::Impl::Walk() {
    CIndexReader aReader(*m_pFile);
    CCircleWatch aWatch;
    const bool bChained = m_FileHeader.dwIndexType == Index_Chained;
    m_qwEndOffset = c_dwFileHeaderSize;
    while (m_vecEntries.size() < m_FileHeader.dwEntryCount) {
        if (m_vecEntries.size() == c_dwMaxKnownEntries)
            return EndWalk(Walk_TooMany, CACHE_ERR_OUT_OF_MEMORY);
        if (bChained && aWatch.IsBack(m_qwEndOffset, 0)) break;
        unsigned char aBytes[c_dwEntrySize];
        CmUint32 dwLength = 0;
        const CmInt32 lResult = aReader.ReadEntry(m_qwEndOffset, aBytes, dwLength);
        if (lResult != CACHE_OK) return EndWalk(Walk_CutOff, lResult);
        if (dwLength != c_dwEntrySize) return EndWalk(Walk_CutOff, CACHE_ERR_BAD_CONTAINER);
        tagIndexEntry aFound{static_cast<CmUint32>(m_qwEndOffset), {}};
        if (BuildQXFEntry(aBytes, aFound.aEntry) != CACHE_OK)
            return EndWalk(Walk_CutOff, CACHE_ERR_FAILED);
        m_vecEntries.push_back(aFound);
        m_qwEndOffset = NextEntryOffset(m_FileHeader.dwIndexType, aFound.aEntry, aFound.dwOffset);
    }
    return EndWalk(Walk_Complete, CACHE_OK);
}

CmInt32 CContainerIndex::Impl::EndWalk(EndOfWalk aEnd, CmInt32 lResult) {
    m_EndOfWalk = aEnd;
    if (m_FileHeader.dwIndexType == Index_Chained) CutCircle();
    return lResult;
}

/// The watch sees a circle only some laps later, and the walk may have ended before: leaves each
/// entry once.
void CContainerIndex::Impl::CutCircle() {
    std::vector<std::size_t> vecOrder(m_vecEntries.size());
    for (std::size_t i = 0; i < vecOrder.size(); ++i) vecOrder[i] = i;
    const auto aOffsetOf = [this](std::size_t i) { return m_vecEntries[i].dwOffset; };
    std::stable_sort(vecOrder.begin(), vecOrder.end(),
                     [&](std::size_t a, std::size_t b) { return aOffsetOf(a) < aOffsetOf(b); });
    std::size_t nCut = m_vecEntries.size();
    for (std::size_t i = 1; i < vecOrder.size(); ++i)
        if (aOffsetOf(vecOrder[i]) == aOffsetOf(vecOrder[i - 1]))
            nCut = std::min(nCut, vecOrder[i]);
    if (nCut == m_vecEntries.size()) return;
    m_EndOfWalk = Walk_Circle;
    m_qwEndOffset = m_vecEntries[nCut].dwOffset;
    m_vecEntries.resize(nCut);
}

void CContainerIndex::Impl::ReadConfFileHeader() {
    for (auto it = m_vecEntries.rbegin(); it != m_vecEntries.rend() && !m_bConfFileHeader; ++it) {
        if (it->aEntry.wTag != c_wConfTag) continue;
        unsigned char aBytes[c_dwEntryFileHeaderSize];
        CmUint32 dwLength = c_dwEntryFileHeaderSize;
        m_bConfFileHeader =
            m_pFile->ReadData(aBytes, it->aEntry.dwDataOffset, dwLength) == CACHE_OK &&
            dwLength == c_dwEntryFileHeaderSize &&
            BuildEntryFileHeader(aBytes, m_ConfFileHeader) == CACHE_OK;
    }
}

CContainerIndex::CContainerIndex() : m_pImpl(new (std::nothrow) Impl) {}

CContainerIndex::~CContainerIndex() = default;

CmInt32 CContainerIndex::Open(const CCmString& strPath) try {
    return m_pImpl ? m_pImpl->Open(strPath) : CmInt32{CACHE_ERR_OUT_OF_MEMORY};
} catch (const std::bad_alloc&) {
    return CACHE_ERR_OUT_OF_MEMORY;
}

std::uint64_t CContainerIndex::GetFileSize() const { return m_pImpl ? m_pImpl->m_qwFileSize : 0; }

const tagQXFFileHeader& CContainerIndex::GetFileHeader() const {
    return m_pImpl ? m_pImpl->m_FileHeader : c_aNoHeader;
}

std::size_t CContainerIndex::GetEntryCount() const {
    return m_pImpl ? m_pImpl->m_vecEntries.size() : 0;
}

const tagIndexEntry& CContainerIndex::GetEntry(std::size_t nIndex) const {
    return m_pImpl->m_vecEntries[nIndex];
}

CContainerIndex::EndOfWalk CContainerIndex::GetEndOfWalk() const {
    return m_pImpl ? m_pImpl->m_EndOfWalk : Walk_None;
}

std::uint64_t CContainerIndex::GetEndOffset() const { return m_pImpl ? m_pImpl->m_qwEndOffset : 0; }

const tagEntryFileHeader* CContainerIndex::GetConfFileHeader() const {
    return m_pImpl && m_pImpl->m_bConfFileHeader ? &m_pImpl->m_ConfFileHeader : nullptr;
}

CmInt32 CContainerIndex::ReadData(std::uint64_t qwOffset, unsigned char* lpBuffer,
                                  CmUint32& dwLength) {
    CM_CHECK(lpBuffer, "lpBuffer", CACHE_ERR_INVALID_ARG);
    CM_CHECK(m_pImpl && m_pImpl->m_pFile, "m_pFile", CACHE_ERR_NOT_OPEN);
    if (qwOffset > CCacheFileManager::GetMaxDword()) {
        dwLength = 0;
        return CACHE_OK;
    }
    return m_pImpl->m_pFile->ReadData(lpBuffer, static_cast<CmUint32>(qwOffset), dwLength);
}
