#include "fuzz/Target.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tests/support/Containers.h"

namespace {

constexpr std::size_t c_nCount = 16;  // the offset of the number of entries
constexpr std::size_t c_nLongest = 1 << 17;

/// Most walks are short, some cross the blocks in which a reader reads the index, a few are
/// endless.
CmUint32 CutCount(CmUint32 dwCount, std::uint64_t qwRandom) {
    if (qwRandom % 262144 == 0) return dwCount;
    const CmUint32 dwLimit = qwRandom % 1024 == 1 ? 2500 : qwRandom % 16 == 1 ? 300 : 30;
    return dwCount <= dwLimit ? dwCount : dwCount % dwLimit + 1;
}

void RepeatEntries(CCmString& strBytes, std::size_t nEntries, std::size_t nTimes) {
    const CCmString strEntries = strBytes.substr(c_nHeader, nEntries * c_nEntry);
    if (strEntries.empty() || nTimes == 0) return;
    CCmString strAll;
    while (nTimes-- > 0 && strAll.size() < c_nLongest) strAll += strEntries;
    strBytes.insert(c_nHeader, strAll);
}

}  // namespace

std::uint64_t ShapeFile(const std::uint8_t* lpBytes, std::size_t dwSize) {
    std::uint64_t qwRandom = 0xCBF29CE484222325;
    for (std::size_t i = 0; i < dwSize; ++i) qwRandom = (qwRandom ^ lpBytes[i]) * 0x100000001B3;
    qwRandom ^= qwRandom >> 32;

    MemoryDisk::File& aFile = MemoryDisk::Instance().Put(
        c_szPath, CCmString(reinterpret_cast<const char*>(lpBytes), dwSize));
    if (dwSize < c_nHeader) return qwRandom;
    aFile.qwBadFrom = (lpBytes[0] | std::uint64_t{lpBytes[1]} << 8) * 8;
    aFile.qwBadTo = aFile.qwBadFrom + lpBytes[2];
    Set32(aFile.strBytes, c_nCount, CutCount(Get32(aFile.strBytes, c_nCount), qwRandom));
    RepeatEntries(aFile.strBytes, lpBytes[4], lpBytes[5]);
    return qwRandom;
}

MemoryDisk::File& TheFile() { return *MemoryDisk::Instance().m_mapNames[c_szPath]; }

std::uint64_t WalkSteps(const MemoryDisk::File& aFile) {
    const std::uint64_t qwSize = aFile.strBytes.size();
    const CmUint32 dwCount = qwSize < c_nHeader ? 0 : Get32(aFile.strBytes, c_nCount);
    return std::min<std::uint64_t>(dwCount, 8 * qwSize + 8) + 1;
}

std::uint64_t WalkBytes(const MemoryDisk::File& aFile) {
    const std::uint64_t qwSize = aFile.strBytes.size();
    return 24 + (72 + 288) * WalkSteps(aFile) + qwSize + qwSize / 2048 + 65536;
}

void Require(bool bHolds, const char* lpWhat) {
    if (bHolds) return;
    std::fprintf(stderr, "check failed: %s\n", lpWhat);
    std::abort();
}
