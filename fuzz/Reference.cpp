#include "fuzz/Reference.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "tests/support/Containers.h"

constexpr std::size_t c_nMostSteps = 20'000;

bool Reference::IsBad(std::uint64_t qwFrom, std::uint64_t qwTo) const {
    qwTo = std::min<std::uint64_t>(qwTo, m_strFile.size());
    return std::max(qwFrom, m_qwBadFrom) < std::min(qwTo, m_qwBadTo);
}

CmUint32 Reference::Word(std::uint64_t qwAt) const {
    return Get32(m_strFile, static_cast<std::size_t>(qwAt));
}

/// Returns whether nLength bytes can be read there; sets the code if not.
bool Reference::IsThere(std::uint64_t qwAt, unsigned nLength) {
    const bool bBad = IsBad(qwAt, qwAt + nLength);
    if (!bBad && qwAt + nLength <= m_strFile.size()) return true;
    lResult = bBad ? 4006 : 4002;
    return false;
}

Reference::Reference(const CCmString& strFile, std::uint64_t qwBadFrom, std::uint64_t qwBadTo)
    : m_strFile(strFile), m_qwBadFrom(qwBadFrom), m_qwBadTo(qwBadTo) {
    if (!IsThere(0, c_nHeader)) return;
    dwFileSize = Word(8);
    dwCount = Word(16);
    bHeader = dwFileSize != 0 && Word(12) == 0 && dwCount != 0 && Word(20) <= 1;
    if (bHeader)
        Walk();
    else
        lResult = 4002;
}

void Reference::Walk() {
    const bool bChained = Word(20) == 1;
    std::map<std::uint64_t, std::size_t>
        mapKnownAt;  // for each offset, how many streams were known at its last visit
    std::uint64_t qwAt = c_nHeader;
    for (CmUint32 dwStep = 0; dwStep < dwCount; ++dwStep) {
        if (dwStep == c_nMostSteps) {
            bBrokenOff = true;
            return;
        }
        const auto [itSeen, bNew] = mapKnownAt.emplace(qwAt, vecStreams.size());
        bCircle = bCircle || !bNew;
        // A round that adds no stream would repeat without end.
        if (!bNew && itSeen->second == vecStreams.size()) return;
        itSeen->second = vecStreams.size();
        if (!IsThere(qwAt, c_nEntry) || !TakeEntry(qwAt)) return;
        qwAt = bChained ? Word(qwAt + 24) : qwAt + c_nEntry;
    }
}

bool Reference::TakeEntry(std::uint64_t qwAt) {
    const unsigned wTag = Word(qwAt) & 0xFFFF;
    const CmUint32 dwData = Word(qwAt + 16);
    if (!bCircle) vecEntries.push_back({qwAt, wTag, dwData, Word(qwAt + 20)});
    if (!FindTagRow(wTag)) return true;
    vecStreams.push_back(
        {DescriberOf(wTag, Word(qwAt + 4), Word(qwAt + 8)), dwData, vecEntries.size() - 1});
    if (wTag != c_wConf) return true;
    if (!IsThere(dwData, c_nConfHeader)) return false;
    dwVersion = Word(dwData + std::uint64_t{8});
    dwTimeStamp = Word(dwData + std::uint64_t{52});
    return true;
}

const Reference::Stream* Reference::Find(const tagDataInfo& aInfo) const {
    for (const Stream& aStream : vecStreams)
        if (DataInfoMatches(aInfo, aStream.aDescriber)) return &aStream;
    return nullptr;
}

CmInt32 Reference::Read(const tagDataInfo& aInfo, CmUint32 dwOffset, CmUint32 dwLength,
                        CCmString& strBytes) const {
    const Stream* const pStream = Find(aInfo);
    if (!pStream || dwLength == 0) return 4009;
    const std::uint64_t qwFrom = std::uint64_t{pStream->dwDataOffset} + dwOffset;
    if (qwFrom > 0xFFFFFFFF) return 4009;
    if (dwLength != 0xFFFFFFFF && qwFrom + dwLength > dwFileSize) return 4009;
    if (IsBad(qwFrom, qwFrom + dwLength)) return 4006;
    strBytes.clear();
    if (qwFrom < m_strFile.size())
        strBytes = m_strFile.substr(static_cast<std::size_t>(qwFrom), dwLength);
    return 0;
}

std::vector<CmUint32> Reference::Lengths(const std::vector<Entry>& vecIndex) const {
    std::set<std::uint64_t> setBounds;
    std::map<std::uint64_t, std::size_t> mapLastAt;
    for (std::size_t i = 0; i < vecIndex.size(); ++i) {
        setBounds.insert(
            {vecIndex[i].qwOffset, vecIndex[i].qwOffset + c_nEntry, vecIndex[i].dwDataOffset});
        mapLastAt[vecIndex[i].dwDataOffset] = i;
    }
    std::vector<CmUint32> vecExtents, vecNoted;
    std::size_t nNotes = 0, nFit = 0;
    for (std::size_t i = 0; i < vecIndex.size(); ++i) {
        const std::uint64_t qwFrom = vecIndex[i].dwDataOffset, qwNoted = vecIndex[i].dwNoted;
        std::uint64_t qwTo = qwFrom > dwFileSize ? m_strFile.size() : dwFileSize;
        const auto itNext = setBounds.upper_bound(qwFrom);
        if (itNext != setBounds.end()) qwTo = std::min(qwTo, *itNext);
        const std::uint64_t qwBytes = qwTo > qwFrom ? qwTo - qwFrom : 0;
        const bool bNote = qwNoted > 0 || qwBytes == 0, bFits = bNote && qwNoted <= qwBytes;
        nNotes += bNote;
        nFit += bFits;
        const bool bLast = mapLastAt[vecIndex[i].dwDataOffset] == i;
        vecExtents.push_back(static_cast<CmUint32>(bLast ? qwBytes : bFits ? qwNoted : 0));
        vecNoted.push_back(bFits ? static_cast<CmUint32>(qwNoted) : vecExtents.back());
    }
    return nFit * 2 >= nNotes ? vecNoted : vecExtents;
}

CmUint32 Reference::PlayedLength(const Stream& aStream) const {
    const std::uint64_t qwEnd = std::min<std::uint64_t>(dwFileSize, m_strFile.size());
    if (aStream.dwDataOffset >= qwEnd) return 0;
    return static_cast<CmUint32>(
        std::min<std::uint64_t>(Lengths(vecEntries)[aStream.nEntry], qwEnd - aStream.dwDataOffset));
}
