#include "download/ContainerIndex.h"

#include <new>
#include <utility>
#include <vector>

#include "download/IndexWalk.h"
#include "download/RecordReader.h"
#include "download/StreamExtents.h"
#include "fileop/FileOperation.h"
#include "platform/CmTraceLine.h"

namespace {

/// What an object without memory returns.
const tagQXFFileHeader c_aNoHeader{};

CmInt32 OpenFile(const CCmString& strPath, CRefPtr<IFileOperation>& pFile,
                 std::uint64_t& qwFileSize) {
    pFile = CFileOperationFactory::Instance()->CreateLocalFile(1);
    if (!pFile) return CACHE_ERR_OUT_OF_MEMORY;
    const CmInt32 lResult = pFile->Open(strPath, 0);
    return lResult == CACHE_OK ? pFile->GetSize(qwFileSize) : lResult;
}

}  // namespace

/// What a container index has read. Owned by a CContainerIndex and used on its thread. Its
/// operations throw std::bad_alloc.
class CIndexContents {
 public:
    static constexpr bool c_bFollowsCircles = false;
    using EndOfWalk = CContainerIndex::EndOfWalk;

    CmInt32 Open(const CCmString& strPath);
    CmInt32 OnEntry(const tagWalkEntry& aEntry);  // called by the walk
    const CStreamExtents& Extents();

    CRefPtr<IFileOperation> m_pFile;
    std::uint64_t m_qwFileSize = 0;
    tagQXFFileHeader m_FileHeader{};
    std::vector<tagIndexEntry> m_vecEntries;
    EndOfWalk m_EndOfWalk = CContainerIndex::Walk_None;
    std::uint64_t m_qwEndOffset = 0;
    bool m_bConfFileHeader = false;
    tagEntryFileHeader m_ConfFileHeader{};

 private:
    CmInt32 ReadIndex();
    CmInt32 Walk(CIndexReader& aReader);
    CmInt32 EndWalk(EndOfWalk aEnd, CmInt32 lResult);
    void CutCircle();
    void ReadConfFileHeader();

    bool m_bExtents = false;
    CStreamExtents m_aExtents;
};

CmInt32 CIndexContents::Open(const CCmString& strPath) {
    CM_CHECK(!m_pFile, "!m_pFile", CACHE_ERR_INVALID_STATE);
    CmInt32 lResult = OpenFile(strPath, m_pFile, m_qwFileSize);
    if (lResult == CACHE_OK) lResult = ReadIndex();
    ReadConfFileHeader();
    return lResult;
}

CmInt32 CIndexContents::ReadIndex() {
    CIndexReader aReader(*m_pFile);
    const CmInt32 lResult = aReader.ReadFileHeader(m_FileHeader).GetResult();
    if (lResult != CACHE_OK) return lResult;
    return IsContainerHeader(m_FileHeader) ? Walk(aReader) : CmInt32{CACHE_ERR_BAD_CONTAINER};
}

CmInt32 CIndexContents::Walk(CIndexReader& aReader) {
    CIndexWalk aWalk(aReader, m_FileHeader);
    const CIndexWalk::End aEnd = aWalk.Run(*this);
    m_qwEndOffset = aWalk.GetOffset();
    if (m_FileHeader.dwIndexType == Index_Chained) CutCircle();
    if (m_EndOfWalk == CContainerIndex::Walk_Circle) return CACHE_OK;
    switch (aEnd) {
        case CIndexWalk::End_Circle:
            return EndWalk(CContainerIndex::Walk_Circle, CACHE_OK);
        case CIndexWalk::End_Unreadable:
            return EndWalk(CContainerIndex::Walk_CutOff, aWalk.GetResult());
        case CIndexWalk::End_TooMany:
            return EndWalk(CContainerIndex::Walk_TooMany, CACHE_ERR_OUT_OF_MEMORY);
        default:
            return EndWalk(CContainerIndex::Walk_Complete, CACHE_OK);
    }
}

CmInt32 CIndexContents::OnEntry(const tagWalkEntry& aEntry) {
    m_vecEntries.push_back({aEntry.dwOffset, {}});
    return BuildQXFEntry(aEntry.lpBytes, m_vecEntries.back().aEntry);
}

CmInt32 CIndexContents::EndWalk(EndOfWalk aEnd, CmInt32 lResult) {
    m_EndOfWalk = aEnd;
    return lResult;
}

/// The walk notices a circle some laps late, or ends before it does. Keeps each entry once.
void CIndexContents::CutCircle() {
    std::vector<CmUint32> vecOffsets;
    vecOffsets.reserve(m_vecEntries.size());
    for (const tagIndexEntry& aEntry : m_vecEntries) vecOffsets.push_back(aEntry.dwOffset);
    const std::size_t nCut = CountBeforeRepeat(vecOffsets);
    if (nCut == m_vecEntries.size()) return;
    m_EndOfWalk = CContainerIndex::Walk_Circle;
    m_qwEndOffset = vecOffsets[nCut];
    m_vecEntries.resize(nCut);
}

const CStreamExtents& CIndexContents::Extents() {
    if (!m_bExtents) {
        CStreamExtents aExtents;
        for (const tagIndexEntry& a : m_vecEntries)
            aExtents.Add(a.dwOffset, a.aEntry.dwDataOffset, a.aEntry.dwStreamSize);
        aExtents.Derive(m_FileHeader.dwFileSize, m_qwFileSize);
        m_aExtents = std::move(aExtents);
        m_bExtents = true;
    }
    return m_aExtents;
}

void CIndexContents::ReadConfFileHeader() {
    for (auto it = m_vecEntries.rbegin(); it != m_vecEntries.rend() && !m_bConfFileHeader; ++it) {
        // A file may have very many conf entries, so those past its end cost no read.
        const std::uint64_t qwEnd =
            std::uint64_t{it->aEntry.dwDataOffset} + c_dwEntryFileHeaderSize;
        if (it->aEntry.wTag != c_wConfTag || qwEnd > m_qwFileSize) continue;
        m_bConfFileHeader = ReadRecord(*m_pFile, it->aEntry.dwDataOffset, m_ConfFileHeader).aEnd ==
                            tagRecordRead::End_Whole;
    }
}

CContainerIndex::CContainerIndex() : m_pContents(new (std::nothrow) CIndexContents) {}

CContainerIndex::~CContainerIndex() = default;

CmInt32 CContainerIndex::Open(const CCmString& strPath) try {
    return m_pContents ? m_pContents->Open(strPath) : CmInt32{CACHE_ERR_OUT_OF_MEMORY};
} catch (const std::bad_alloc&) {
    return CACHE_ERR_OUT_OF_MEMORY;
}

std::uint64_t CContainerIndex::GetFileSize() const {
    return m_pContents ? m_pContents->m_qwFileSize : 0;
}

const tagQXFFileHeader& CContainerIndex::GetFileHeader() const {
    return m_pContents ? m_pContents->m_FileHeader : c_aNoHeader;
}

std::size_t CContainerIndex::GetEntryCount() const {
    return m_pContents ? m_pContents->m_vecEntries.size() : 0;
}

const tagIndexEntry& CContainerIndex::GetEntry(std::size_t nIndex) const {
    return m_pContents->m_vecEntries[nIndex];
}

CContainerIndex::EndOfWalk CContainerIndex::GetEndOfWalk() const {
    return m_pContents ? m_pContents->m_EndOfWalk : CContainerIndex::Walk_None;
}

std::uint64_t CContainerIndex::GetEndOffset() const {
    return m_pContents ? m_pContents->m_qwEndOffset : 0;
}

const tagEntryFileHeader* CContainerIndex::GetConfFileHeader() const {
    return m_pContents && m_pContents->m_bConfFileHeader ? &m_pContents->m_ConfFileHeader : nullptr;
}

CmInt32 CContainerIndex::GetStreamExtent(std::size_t nIndex, tagStreamExtent& aExtent) const try {
    CM_CHECK(nIndex < GetEntryCount(), "nIndex < GetEntryCount( )", CACHE_ERR_INVALID_ARG);
    aExtent = m_pContents->Extents()[nIndex];
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return CACHE_ERR_OUT_OF_MEMORY;
}

CmInt32 CContainerIndex::GetStreamLength(std::size_t nIndex, CmUint32& dwLength) const {
    tagStreamExtent aExtent;
    const CmInt32 lResult = GetStreamExtent(nIndex, aExtent);
    if (lResult == CACHE_OK)
        dwLength = PlayableLength(GetEntry(nIndex).aEntry.dwDataOffset, aExtent.dwLength,
                                  GetFileHeader().dwFileSize, GetFileSize());
    return lResult;
}

CmInt32 CContainerIndex::ReadData(std::uint64_t qwOffset, unsigned char* lpBuffer,
                                  CmUint32& dwLength) {
    CM_CHECK(lpBuffer, "lpBuffer", CACHE_ERR_INVALID_ARG);
    CM_CHECK(m_pContents && m_pContents->m_pFile, "m_pFile", CACHE_ERR_NOT_OPEN);
    if (qwOffset > CCacheFileManager::GetMaxDword()) {
        dwLength = 0;
        return CACHE_OK;
    }
    return m_pContents->m_pFile->ReadData(lpBuffer, static_cast<CmUint32>(qwOffset), dwLength);
}
