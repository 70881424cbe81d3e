#include "tools/cachefile/Layout.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace {

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
