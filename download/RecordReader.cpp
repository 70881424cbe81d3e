#include "download/RecordReader.h"

#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

namespace {

template <CmUint32 dwSize, class Record>
tagRecordRead Read(IFileOperation& aFile, CmUint32 dwOffset,
                   CmInt32 (*pParse)(const unsigned char*, Record&), Record& aRecord) {
    unsigned char aBytes[dwSize];
    CmUint32 dwLength = dwSize;
    const CmInt32 lResult = aFile.ReadData(aBytes, dwOffset, dwLength);
    if (lResult != CACHE_OK) return {tagRecordRead::End_ReadFailed, lResult, dwLength};
    if (dwLength != dwSize) return {tagRecordRead::End_CutOff, CACHE_OK, dwLength};
    if (pParse(aBytes, aRecord) != CACHE_OK)
        return {tagRecordRead::End_Malformed, CACHE_OK, dwLength};
    return {tagRecordRead::End_Whole, CACHE_OK, dwLength};
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
