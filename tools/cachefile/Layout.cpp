#include "tools/cachefile/Layout.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "platform/CmResult.h"
#include "tools/cachefile/Exit.h"

namespace {

/// The data of most containers is sorted already.
template <class It, class Less>
void Order(It itBegin, It itEnd, Less aLess) {
    if (!std::is_sorted(itBegin, itEnd, aLess)) std::sort(itBegin, itEnd, aLess);
}

tagStream ReadEntry(const CContainerIndex& aIndex, std::size_t nIndex) {
    const tagIndexEntry& aFound = aIndex.GetEntry(nIndex);
    tagStream aStream;
    aStream.bKnown = TagToFileDescriber(aFound.aEntry, aStream.aDescriber) == CACHE_OK;
    aStream.wTag = aFound.aEntry.wTag;
    aStream.dwExtraInfo = aFound.aEntry.dwExtraInfo;
    aStream.qwEntryOffset = aFound.dwOffset;
    aStream.qwOffset = aFound.aEntry.dwDataOffset;
    tagStreamExtent aExtent;
    const CmInt32 lResult = aIndex.GetStreamExtent(nIndex, aExtent);
    if (lResult != CACHE_OK)
        throw CFailure(ResultText("cannot find where the streams end", lResult));
    aStream.qwExtent = aExtent.dwLength;
    const std::uint64_t qwSize = aIndex.GetFileSize();
    const std::uint64_t qwAvailable = qwSize > aStream.qwOffset ? qwSize - aStream.qwOffset : 0;
    aStream.qwPresent = std::min(aStream.qwExtent, qwAvailable);
    return aStream;
}

/// Of several entries with the same type, id and kind the first one is played. A kind in a
/// container is a single bit.
void FindHidden(std::vector<tagStream>& vecStreams) {
    std::vector<const tagStream*> vecOrder;
    vecOrder.reserve(vecStreams.size());
    for (const tagStream& aStream : vecStreams)
        if (aStream.bKnown) vecOrder.push_back(&aStream);
    const auto aKey = [](const tagStream* p) {
        const tagFileDescriber& a = p->aDescriber;
        return std::tuple(a.wDataType, a.dwFileID, a.byFileType);
    };
    Order(vecOrder.begin(), vecOrder.end(), [&](const tagStream* a, const tagStream* b) {
        return std::tuple(aKey(a), a) < std::tuple(aKey(b), b);
    });
    std::size_t nFirst = 0;
    for (std::size_t i = 1; i < vecOrder.size(); ++i)
        if (aKey(vecOrder[i]) == aKey(vecOrder[nFirst]))
            vecStreams[static_cast<std::size_t>(vecOrder[i] - vecStreams.data())].nHiddenBy =
                static_cast<std::size_t>(vecOrder[nFirst] - vecStreams.data()) + 1;
        else
            nFirst = i;
}

/// A player stops at a conf header that is cut off, and refuses to read streams that start after
/// the end given in the header.
void FindUnreachable(const CContainerIndex& aIndex, std::vector<tagStream>& vecStreams) {
    bool bStopped = false;
    for (tagStream& aStream : vecStreams) {
        if (bStopped)
            aStream.lpUnreachable = "after a cut-off header";
        else if (aStream.qwOffset > aIndex.GetFileHeader().dwFileSize)
            aStream.lpUnreachable = "past the end";
        bStopped = bStopped || (aStream.wTag == c_wConfTag &&
                                aStream.qwOffset + c_dwEntryFileHeaderSize > aIndex.GetFileSize());
    }
}

/// Collects regions in the order of their first bytes.
class CSweep {
 public:
    void Add(tagRegion::Kind aKind, std::uint64_t qwBegin, std::uint64_t qwEnd,
             std::size_t nStream) {
        FillUpTo(qwBegin);
        if (qwBegin < m_qwCovered && qwBegin < qwEnd)
            Append({tagRegion::Overlap, qwBegin, std::min(qwEnd, m_qwCovered), nStream});
        if (qwEnd <= m_qwCovered) return;
        Append({aKind, std::max(qwBegin, m_qwCovered), qwEnd, nStream});
        m_qwCovered = qwEnd;
    }

    void FillUpTo(std::uint64_t qwEnd) {
        if (qwEnd <= m_qwCovered) return;
        Append({tagRegion::Gap, m_qwCovered, qwEnd, 0});
        m_qwCovered = qwEnd;
    }

    std::vector<tagRegion> vecRegions;

 private:
    /// Consecutive entries become one region.
    void Append(const tagRegion& aRegion) {
        tagRegion* const pLast = vecRegions.empty() ? nullptr : &vecRegions.back();
        if (pLast && aRegion.aKind == tagRegion::Index && pLast->aKind == tagRegion::Index &&
            pLast->qwEnd == aRegion.qwBegin)
            pLast->qwEnd = aRegion.qwEnd;
        else
            vecRegions.push_back(aRegion);
    }

    std::uint64_t m_qwCovered = 0;
};

}  // namespace

std::vector<tagStream> LayOutStreams(const CContainerIndex& aIndex) {
    std::vector<tagStream> vecStreams;
    vecStreams.reserve(aIndex.GetEntryCount());
    for (std::size_t i = 0; i < aIndex.GetEntryCount(); ++i)
        vecStreams.push_back(ReadEntry(aIndex, i));
    FindHidden(vecStreams);
    FindUnreachable(aIndex, vecStreams);
    return vecStreams;
}

const char* RegionName(tagRegion::Kind aKind) {
    static const char* const s_aNames[] = {"header", "index",   "stream",
                                           "gap",    "overlap", "missing"};
    return s_aNames[aKind];
}

std::vector<tagRegion> LayOutRegions(const tagRecording& aRecording) {
    std::vector<tagRegion> vecClaims{{tagRegion::Header, 0, c_dwFileHeaderSize, 0}};
    for (std::size_t i = 0; i < aRecording.vecStreams.size(); ++i) {
        const tagStream& aStream = aRecording.vecStreams[i];
        vecClaims.push_back({tagRegion::Index, aStream.qwEntryOffset,
                             aStream.qwEntryOffset + c_dwEntrySize, i + 1});
        if (aStream.qwPresent > 0)
            vecClaims.push_back(
                {tagRegion::Stream, aStream.qwOffset, aStream.qwOffset + aStream.qwPresent, i + 1});
    }
    std::sort(vecClaims.begin(), vecClaims.end(), [](const tagRegion& a, const tagRegion& b) {
        return std::tuple(a.qwBegin, a.aKind, a.nStream) <
               std::tuple(b.qwBegin, b.aKind, b.nStream);
    });
    CSweep aSweep;
    for (const tagRegion& aClaim : vecClaims)
        aSweep.Add(aClaim.aKind, aClaim.qwBegin, aClaim.qwEnd, aClaim.nStream);
    const std::uint64_t qwDeclared = aRecording.pIndex->GetFileHeader().dwFileSize;
    aSweep.FillUpTo(aRecording.qwSize);
    if (qwDeclared > aRecording.qwSize)
        aSweep.Add(tagRegion::Missing, aRecording.qwSize, qwDeclared, 0);
    std::size_t nTurn = 0;
    for (tagRegion& aRegion : aSweep.vecRegions)
        if (aRegion.aKind == tagRegion::Stream) aRegion.nTurn = ++nTurn;
    return std::move(aSweep.vecRegions);
}
