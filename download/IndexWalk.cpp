#include "download/IndexWalk.h"

#include <algorithm>
#include <functional>
#include <numeric>

CIndexWalk::End CIndexWalk::Fail() {
    const CmInt32 lResult = m_reader.GetResult();
    m_read = {lResult != CACHE_OK ? tagRecordRead::End_ReadFailed : tagRecordRead::End_CutOff,
              lResult, m_reader.GetLength()};
    return End_Unreadable;
}

std::size_t cachefile_internal::CountBeforeRepeat(const std::vector<CmUint32>& vecOffsets) {
    const auto itBegin = vecOffsets.begin();
    const auto itEnd = vecOffsets.end();
    if (std::adjacent_find(itBegin, itEnd, std::greater_equal<>()) == itEnd)
        return vecOffsets.size();  // ascending, like most indexes
    std::vector<CmUint32> vecOrder(vecOffsets.size());
    std::iota(vecOrder.begin(), vecOrder.end(), 0);
    std::sort(vecOrder.begin(), vecOrder.end(), [&](CmUint32 a, CmUint32 b) {
        return vecOffsets[a] != vecOffsets[b] ? vecOffsets[a] < vecOffsets[b] : a < b;
    });
    std::size_t nFirst = vecOffsets.size();
    for (std::size_t i = 1; i < vecOrder.size(); ++i)
        if (vecOffsets[vecOrder[i]] == vecOffsets[vecOrder[i - 1]])
            nFirst = std::min<std::size_t>(nFirst, vecOrder[i]);
    return nFirst;
}
