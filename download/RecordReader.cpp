#include "download/RecordReader.h"

#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

namespace {

template <class Record>
tagRecordRead Parse(CmInt32 lReadResult, const unsigned char* lpBytes, CmUint32 dwLength,
                    CmUint32 dwSize, CmInt32 (*pParse)(const unsigned char*, Record&),
                    Record& aRecord) {
    if (lReadResult != CACHE_OK) return {tagRecordRead::End_ReadFailed, lReadResult, dwLength};
    if (dwLength != dwSize) return {tagRecordRead::End_CutOff, CACHE_OK, dwLength};
    if (pParse(lpBytes, aRecord) != CACHE_OK)
        return {tagRecordRead::End_Malformed, CACHE_OK, dwLength};
    return {tagRecordRead::End_Whole, CACHE_OK, dwLength};
}

template <CmUint32 dwSize, class Record>
tagRecordRead Read(IFileOperation& aFile, CmUint32 dwOffset,
                   CmInt32 (*pParse)(const unsigned char*, Record&), Record& aRecord) {
    unsigned char aBytes[dwSize];
    CmUint32 dwLength = dwSize;
    const CmInt32 lResult = aFile.ReadData(aBytes, dwOffset, dwLength);
    return Parse(lResult, aBytes, dwLength, dwSize, pParse, aRecord);
}

}  // namespace

CmInt32 cachefile_internal::tagRecordRead::GetResult() const {
    switch (aEnd) {
        case End_ReadFailed:
            return lReadResult;
        case End_CutOff:
            return CACHE_ERR_BAD_CONTAINER;
        case End_Malformed:
            return CACHE_ERR_FAILED;
        default:
            return CACHE_OK;
    }
}

tagRecordRead cachefile_internal::ReadRecord(IFileOperation& aFile, CmUint32 dwOffset,
                                             tagQXFFileHeader& aHeader) {
    return Read<c_dwFileHeaderSize>(aFile, dwOffset, BuildQXFFileHeader, aHeader);
}

tagRecordRead cachefile_internal::ReadRecord(IFileOperation& aFile, CmUint32 dwOffset,
                                             tagEntryFileHeader& aHeader) {
    return Read<c_dwEntryFileHeaderSize>(aFile, dwOffset, BuildEntryFileHeader, aHeader);
}

tagRecordRead cachefile_internal::ParseEntry(CmInt32 lReadResult, const unsigned char* lpBytes,
                                             CmUint32 dwLength, tagMRFD& aEntry) {
    return Parse(lReadResult, lpBytes, dwLength, c_dwEntrySize, BuildQXFEntry, aEntry);
}

CmInt32 cachefile_internal::ReportRecord(const tagRecordRead& aRead, const tagRecordTexts& aTexts,
                                         const void* pObject) {
    constexpr char c_szOperation[] = "CDownloadFileHandler::InitFileInfo->";
    switch (aRead.aEnd) {
        case tagRecordRead::End_ReadFailed:
            TraceError(c_szOperation, aTexts.lpReadFailed, aRead.lReadResult, " this=", pObject);
            break;
        case tagRecordRead::End_CutOff:
            TraceError(c_szOperation, aTexts.lpCutOff, aRead.dwLength, " this=", pObject);
            break;
        case tagRecordRead::End_Malformed:
            TraceError(c_szOperation, aTexts.lpMalformed, " this=", pObject);
            break;
        default:
            break;
    }
    return aRead.GetResult();
}
