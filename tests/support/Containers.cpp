#include "tests/support/Containers.h"

#include <algorithm>
#include <ostream>

const TagRow c_aTagRows[20] = {
    {256, 1, 2},  {257, 3, 2},  {258, 8, 2},   {259, 10, 2}, {260, 16, 2},
    {261, 5, 4},  {266, 99, 4}, {267, 99, 1},  {268, 4, 4},  {269, 4, 1},
    {270, 20, 4}, {271, 20, 1}, {272, 21, 4},  {273, 21, 1}, {274, 100, 2},
    {276, 6, 4},  {277, 6, 1},  {284, 102, 2}, {286, 51, 4}, {287, 51, 1},
};

const TagRow* FindTagRow(unsigned wTag) {
    for (const TagRow& aRow : c_aTagRows)
        if (aRow.wTag == wTag) return &aRow;
    return nullptr;
}

tagFileDescriber DescriberOf(unsigned wTag, CmUint32 dwEntryID, CmUint32 dwExtraInfo) {
    const TagRow& aRow = *FindTagRow(wTag);
    const CmUint32 dwBase = wTag == 274 || wTag == 284 ? 0 : dwEntryID * 1000;
    return {static_cast<std::uint16_t>(aRow.wDataType), static_cast<std::uint8_t>(aRow.byFileType),
            dwBase + aRow.wDataType, dwExtraInfo};
}

tagDataInfo InfoOf(const tagFileDescriber& aDescriber) {
    return {aDescriber.wDataType, aDescriber.dwFileID, 4711, aDescriber.byFileType};
}

bool operator==(const tagFileDescriber& aOne, const tagFileDescriber& aOther) {
    return aOne.wDataType == aOther.wDataType && aOne.byFileType == aOther.byFileType &&
           aOne.dwFileID == aOther.dwFileID && aOne.dwExtraInfo == aOther.dwExtraInfo;
}

std::ostream& operator<<(std::ostream& aOut, const tagFileDescriber& aDescriber) {
    return aOut << aDescriber.wDataType << "/" << int{aDescriber.byFileType} << "/"
                << aDescriber.dwFileID << "/" << aDescriber.dwExtraInfo;
}

void Set16(CCmString& strBytes, std::size_t nAt, unsigned nValue) {
    if (strBytes.size() < nAt + 2) strBytes.resize(nAt + 2, '\0');
    strBytes[nAt] = static_cast<char>(nValue);
    strBytes[nAt + 1] = static_cast<char>(nValue >> 8);
}

void Set32(CCmString& strBytes, std::size_t nAt, CmUint32 dwValue) {
    Set16(strBytes, nAt, dwValue & 0xFFFF);
    Set16(strBytes, nAt + 2, dwValue >> 16);
}

CmUint32 Get16(const CCmString& strBytes, std::size_t nAt) {
    return static_cast<unsigned char>(strBytes.at(nAt)) |
           CmUint32{static_cast<unsigned char>(strBytes.at(nAt + 1))} << 8;
}

CmUint32 Get32(const CCmString& strBytes, std::size_t nAt) {
    return Get16(strBytes, nAt) | Get16(strBytes, nAt + 2) << 16;
}

void SetHeader(CCmString& strBytes, CmUint32 dwFileSize, CmUint32 dwCount, CmUint32 dwIndexType) {
    Set32(strBytes, 0, 0xA5A5A5A5);
    Set32(strBytes, 4, 0xA5A5A5A5);
    Set32(strBytes, 8, dwFileSize);
    Set32(strBytes, 12, 0);
    Set32(strBytes, 16, dwCount);
    Set32(strBytes, 20, dwIndexType);
}

void SetEntry(CCmString& strBytes, std::size_t nAt, const HandEntry& aEntry) {
    Set16(strBytes, nAt, aEntry.wTag);
    Set16(strBytes, nAt + 2, 0xA5A5);
    Set32(strBytes, nAt + 4, aEntry.dwEntryID);
    Set32(strBytes, nAt + 8, aEntry.dwExtraInfo);
    Set32(strBytes, nAt + 12, 0xA5A5A5A5);
    Set32(strBytes, nAt + 16, aEntry.dwDataOffset);
    Set32(strBytes, nAt + 20, 0xA5A5A5A5);
    Set32(strBytes, nAt + 24, aEntry.dwNextOffset);
    Set32(strBytes, nAt + 28, 0xA5A5A5A5);
}

CCmString ConfBytes(CmUint32 dwVersion, CmUint32 dwTimeStamp, std::size_t nLength) {
    CCmString strBytes = Pattern(nLength, 9);
    Set32(strBytes, 8, dwVersion);
    Set32(strBytes, 52, dwTimeStamp);
    return strBytes;
}

std::vector<HandStream> RandomStreams(SeededRandom& aRandom, unsigned nAtLeast) {
    std::vector<HandStream> vecStreams;
    const unsigned nWanted = nAtLeast + aRandom.Below(12);
    for (unsigned i = 0; i < nWanted; ++i) {
        const unsigned wTag = c_aTagRows[i < nAtLeast ? i : aRandom.Below(20)].wTag;
        const unsigned nLimit = aRandom.Below(8) == 0 ? 100'000 : 2000;
        const CmUint32 dwEntryID = aRandom.Below(aRandom.Below(2) ? 4 : 0xFFFFFFFF);
        HandStream aStream{wTag, dwEntryID, aRandom.Below(0xFFFFFFFF), {}};
        if (aRandom.Below(4) != 0) aStream.strBytes = aRandom.Bytes(aRandom.Below(nLimit));
        if (wTag == c_wConf)
            aStream.strBytes = ConfBytes(aRandom.Below(9), aRandom.Below(0xFFFFFFFF),
                                         c_nConfHeader + aRandom.Below(200));
        const bool bThere =
            std::any_of(vecStreams.begin(), vecStreams.end(), [&](const HandStream& aOther) {
                return DataInfoMatches(InfoOf(aStream.Describer()), aOther.Describer());
            });
        if (!bThere) vecStreams.push_back(std::move(aStream));
    }
    std::swap(vecStreams.front(),
              vecStreams[aRandom.Below(static_cast<unsigned>(vecStreams.size()))]);
    return vecStreams;
}

CCmString OddContainer(SeededRandom& aRandom, const std::vector<HandStream>& vecStreams,
                       CmUint32 dwIndexType) {
    struct Piece {
        std::size_t nSize;
        std::size_t nAt = 0;
    };
    std::vector<Piece> vecPieces;  // the data, then the entries
    for (const HandStream& aStream : vecStreams) vecPieces.push_back({aStream.strBytes.size()});
    std::vector<HandEntry> vecEntries;
    for (const HandStream& aStream : vecStreams) {
        while (aRandom.Below(3) == 0) vecEntries.push_back({c_wUnknown, 1, 2, 0xFFFFFFFF});
        vecEntries.push_back({aStream.wTag, aStream.dwEntryID, aStream.dwExtraInfo});
    }
    vecPieces.resize(vecPieces.size() + vecEntries.size(), {c_nEntry});

    std::vector<std::size_t> vecOrder;  // of the pieces that may lie anywhere
    for (std::size_t i = 0; i < vecPieces.size(); ++i) {
        const bool bFree = i < vecStreams.size() || (dwIndexType == 1 && i > vecStreams.size());
        if (bFree)
            vecOrder.insert(vecOrder.begin() + aRandom.Below(unsigned(vecOrder.size()) + 1), i);
    }
    std::size_t nEnd = c_nHeader;
    for (std::size_t i = vecStreams.size(); i < vecPieces.size(); ++i, nEnd += c_nEntry) {
        vecPieces[i].nAt = nEnd;
        if (dwIndexType == 1) {
            nEnd += c_nEntry;  // only the first has its place
            break;
        }
    }
    for (const std::size_t i : vecOrder) {
        vecPieces[i].nAt = nEnd + aRandom.Below(2) * aRandom.Below(70);
        nEnd = vecPieces[i].nAt + vecPieces[i].nSize;
    }

    CCmString strBytes(nEnd + aRandom.Below(50), '\xEE');
    SetHeader(strBytes, static_cast<CmUint32>(strBytes.size()),
              static_cast<CmUint32>(vecEntries.size()), dwIndexType);
    std::size_t nStream = 0;
    for (std::size_t i = 0; i < vecEntries.size(); ++i) {
        HandEntry aEntry = vecEntries[i];
        const std::size_t nPiece = vecStreams.size() + i;
        if (aEntry.wTag != c_wUnknown) {
            const Piece& aData = vecPieces[nStream];
            strBytes.replace(aData.nAt, aData.nSize, vecStreams[nStream++].strBytes);
            aEntry.dwDataOffset = static_cast<CmUint32>(aData.nAt);
        }
        aEntry.dwNextOffset = 0xFFFFFFFF;  // not read in the last entry and in a packed index
        if (dwIndexType == 1 && i + 1 < vecEntries.size())
            aEntry.dwNextOffset = static_cast<CmUint32>(vecPieces[nPiece + 1].nAt);
        SetEntry(strBytes, vecPieces[nPiece].nAt, aEntry);
    }
    return strBytes;
}
