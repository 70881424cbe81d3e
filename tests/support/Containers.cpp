#include "tests/support/Containers.h"

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

void Set32(CCmString& strBytes, std::size_t nAt, CmUint32 dwValue) {
    if (strBytes.size() < nAt + 4) strBytes.resize(nAt + 4, '\0');
    for (std::size_t i = 0; i < 4; ++i) strBytes[nAt + i] = static_cast<char>(dwValue >> 8 * i);
}

CmUint32 Get32(const CCmString& strBytes, std::size_t nAt) {
    CmUint32 dwValue = 0;
    for (std::size_t i = 4; i-- > 0;)
        dwValue = dwValue << 8 | static_cast<unsigned char>(strBytes.at(nAt + i));
    return dwValue;
}

void SetHeader(CCmString& strBytes, CmUint32 dwFileSize, CmUint32 dwCount, CmUint32 dwIndexType) {
    const CmUint32 aWords[] = {0xA5A5A5A5, 0xA5A5A5A5, dwFileSize, 0, dwCount, dwIndexType};
    for (unsigned i = 0; i < 6; ++i) Set32(strBytes, i * 4, aWords[i]);
}

void SetEntry(CCmString& strBytes, std::size_t nAt, const HandEntry& aEntry) {
    const CmUint32 aWords[] = {
        aEntry.wTag | 0xA5A50000, aEntry.dwEntryID, aEntry.dwExtraInfo,  0xA5A5A5A5,
        aEntry.dwDataOffset,      0xA5A5A5A5,       aEntry.dwNextOffset, 0xA5A5A5A5};
    for (unsigned i = 0; i < 8; ++i) Set32(strBytes, nAt + i * 4, aWords[i]);
}

CCmString ConfBytes(CmUint32 dwVersion, CmUint32 dwTimeStamp, std::size_t nLength) {
    CCmString strBytes = Pattern(nLength, 9);
    Set32(strBytes, 8, dwVersion);
    Set32(strBytes, 52, dwTimeStamp);
    return strBytes;
}
