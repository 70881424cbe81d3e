#include "download/ContainerFormat.h"

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
