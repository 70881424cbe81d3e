#include "download/ContainerFormat.h"

#include <optional>

#include "core/CacheFileManager.h"
#include "platform/CmByteStream.h"
#include "platform/CmResult.h"

namespace {

/// Parses a record of dwSize bytes. aReadFields reads its fields, in file order, from a byte
/// stream.
template <class ReadFields>
CmInt32 Parse(const unsigned char* lpSource, CmUint32 dwSize, ReadFields aReadFields) {
    CCmMessageBlock aBlock(dwSize, lpSource, 1, dwSize);
    CCmByteStreamT<CCmMessageBlock> aStream(aBlock);
    aReadFields(aStream);
    const bool bGood = aStream.m_ResultRead == CACHE_OK && aStream.m_ResultWrite == CACHE_OK;
    return bGood ? CACHE_OK : CACHE_ERR_FAILED;
}

CmUint32 FileID(const tagContainerTag& aTag, CmUint32 dwEntryID) {
    if (aTag.bFixedID) return aTag.wDataType;
    return dwEntryID * CCacheFileManager::Instance().GetFileIDMagicNumber() + aTag.wDataType;
}

/// The smallest n with n * 1000 = dwProduct modulo 2^32. Since 1000 is 8 * 125, n exists only for
/// multiples of 8, and 125 has an inverse modulo 2^29.
std::optional<CmUint32> DivideByMagicNumber(CmUint32 dwProduct) {
    constexpr std::uint32_t c_dwInverse = 0x26E978D5;  // of 125, modulo 2^32
    static_assert(std::uint32_t{125} * c_dwInverse == 1, "this is the inverse of 125");
    if (dwProduct % 8 != 0) return std::nullopt;
    return (dwProduct / 8 * c_dwInverse) & 0x1FFFFFFF;
}

const tagContainerTag* FindTag(std::uint16_t wTag) {
    for (const tagContainerTag& aTag : c_aContainerTags)
        if (aTag.wTag == wTag) return &aTag;
    return nullptr;
}

}  // namespace

CmInt32 BuildQXFFileHeader(const unsigned char* lpSource, tagQXFFileHeader& aHeader) {
    return Parse(lpSource, c_dwFileHeaderSize, [&](auto& aStream) {
        aStream >> aHeader.wReserved0 >> aHeader.wReserved2 >> aHeader.dwReserved4 >>
            aHeader.dwFileSize >> aHeader.dwMustBeZero >> aHeader.dwEntryCount >>
            aHeader.dwIndexType;
    });
}

CmInt32 BuildQXFEntry(const unsigned char* lpSource, tagMRFD& aEntry) {
    return Parse(lpSource, c_dwEntrySize, [&](auto& aStream) {
        aStream >> aEntry.wTag >> aEntry.wReserved2 >> aEntry.dwEntryID >> aEntry.dwExtraInfo >>
            aEntry.dwReserved12 >> aEntry.dwDataOffset >> aEntry.dwStreamSize >>
            aEntry.dwNextOffset >> aEntry.dwReserved28;
    });
}

CmInt32 BuildEntryFileHeader(const unsigned char* lpSource, tagEntryFileHeader& aHeader) {
    return Parse(lpSource, c_dwEntryFileHeaderSize, [&](auto& aStream) {
        aStream >> aHeader.dwReserved0 >> aHeader.dwReserved4 >> aHeader.dwFileVersion;
        for (CmUint32& dwWord : aHeader.aReserved12) aStream >> dwWord;
        aStream >> aHeader.dwCBTimeStamp;
        for (CmUint32& dwWord : aHeader.aReserved56) aStream >> dwWord;
    });
}

CmInt32 TagToFileDescriber(const tagMRFD& aEntry, tagFileDescriber& aDescriber) {
    const tagContainerTag* const pTag = FindTag(aEntry.wTag);
    if (!pTag) return CACHE_ERR_UNKNOWN_TAG;
    aDescriber.wDataType = pTag->wDataType;
    aDescriber.byFileType = pTag->byFileType;
    aDescriber.dwFileID = FileID(*pTag, aEntry.dwEntryID);
    aDescriber.dwExtraInfo = aEntry.dwExtraInfo;
    return CACHE_OK;
}

CmInt32 FileDescriberToTag(const tagFileDescriber& aDescriber, tagMRFD& aEntry) {
    for (const tagContainerTag& aTag : c_aContainerTags) {
        if (aTag.wDataType != aDescriber.wDataType || aTag.byFileType != aDescriber.byFileType)
            continue;
        const std::optional<CmUint32> dwEntryID =
            aTag.bFixedID ? CmUint32{0}
                          : DivideByMagicNumber(aDescriber.dwFileID - aDescriber.wDataType);
        if (!dwEntryID || FileID(aTag, *dwEntryID) != aDescriber.dwFileID) break;
        aEntry.wTag = aTag.wTag;
        aEntry.dwEntryID = *dwEntryID;
        aEntry.dwExtraInfo = aDescriber.dwExtraInfo;
        return CACHE_OK;
    }
    return CACHE_ERR_UNKNOWN_TAG;
}
