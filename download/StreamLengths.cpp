#include "download/StreamLengths.h"

#include <new>
#include <utility>

#include "download/EntryBytes.h"
#include "download/IndexWalk.h"
#include "download/StreamExtents.h"

using cachefile_internal::EntryDataOffset;
using cachefile_internal::EntryStreamSize;

namespace {

/// Keeps the fields of the entries from which lengths are derived.
class CLengthVisitor {
 public:
    static constexpr bool c_bFollowsCircles = false;

    CmInt32 OnEntry(const tagWalkEntry& aEntry) {
        const CmUint32 dwData = EntryDataOffset(aEntry.lpBytes);
        m_vecOffsets.push_back(aEntry.dwOffset);
        m_vecData.push_back(dwData);
        m_vecKnown.push_back(aEntry.pKnown != nullptr);
        m_extents.Add(aEntry.dwOffset, dwData, EntryStreamSize(aEntry.lpBytes));
        return CACHE_OK;
    }

    std::vector<CmUint32> Finish(const tagQXFFileHeader& aHeader, std::uint64_t qwFileSize) {
        const std::size_t nEntries = CountBeforeRepeat(m_vecOffsets);
        m_extents.Keep(nEntries);
        m_extents.Derive(aHeader.dwFileSize, qwFileSize);
        std::vector<CmUint32> vecLengths;
        for (std::size_t i = 0; i < nEntries; ++i)
            if (m_vecKnown[i])
                vecLengths.push_back(PlayableLength(m_vecData[i], m_extents[i].dwLength,
                                                    aHeader.dwFileSize, qwFileSize));
        return vecLengths;
    }

 private:
    std::vector<CmUint32> m_vecOffsets;
    std::vector<CmUint32> m_vecData;
    std::vector<bool> m_vecKnown;
    CStreamExtents m_extents;
};

}  // namespace

CmInt32 cachefile_internal::ReadStreamLengths(IFileOperation& aFile,
                                              const tagQXFFileHeader& aHeader,
                                              CmUint32 dwEntriesRead,
                                              std::vector<CmUint32>& vecLengths) try {
    std::uint64_t qwFileSize = 0;
    const CmInt32 lResult = aFile.GetSize(qwFileSize);
    if (lResult != CACHE_OK) return lResult;
    CLengthVisitor aVisitor;
    CIndexReader aReader(aFile);
    CIndexWalk aWalk(aReader, aHeader, dwEntriesRead);
    switch (aWalk.Run(aVisitor)) {
        case CIndexWalk::End_Complete:
        case CIndexWalk::End_Circle:
            vecLengths = aVisitor.Finish(aHeader, qwFileSize);
            return CACHE_OK;
        case CIndexWalk::End_Unreadable:
            return aWalk.GetResult();
        default:
            return CACHE_ERR_BAD_CONTAINER;
    }
} catch (const std::bad_alloc&) {
    return CACHE_ERR_OUT_OF_MEMORY;
}
