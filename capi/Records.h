#pragma once

#include "capi/Call.h"
#include "core/DataInfo.h"

/// Conversions between the structs of the C interface and the records of the C++ interface. A Take
/// function returns false if the host's struct is invalid.
namespace capi {

inline bool TakeDescriber(const cachefile_describer* pHost, tagFileDescriber& aDescriber) {
    cachefile_describer aCopy;
    if (!CopyStruct(pHost, aCopy) || !IsZero(aCopy.reserved)) return false;
    aDescriber = {aCopy.data_type, aCopy.file_kind, aCopy.file_id, aCopy.extra_info};
    return true;
}

inline bool FillDescriber(const tagFileDescriber& aDescriber, cachefile_describer* pHost) {
    cachefile_describer aFilled = CACHEFILE_DESCRIBER_INIT;
    aFilled.file_id = aDescriber.dwFileID;
    aFilled.extra_info = aDescriber.dwExtraInfo;
    aFilled.data_type = aDescriber.wDataType;
    aFilled.file_kind = aDescriber.byFileType;
    return FillStruct(aFilled, pHost);
}

inline bool TakeDataInfo(const cachefile_data_info* pHost, tagDataInfo& aDataInfo) {
    cachefile_data_info aCopy;
    if (!CopyStruct(pHost, aCopy) || !IsZero(aCopy.reserved)) return false;
    aDataInfo = {aCopy.data_type, aCopy.file_id, aCopy.data_length, aCopy.file_kinds};
    return true;
}

/// The bytes of a write. A host may pass null with length 0, but the library refuses null.
inline const unsigned char* BytesOf(const void* pData, std::uint32_t dwLength) {
    static const unsigned char s_aNoBytes[1] = {0};
    if (!pData && dwLength == 0) return s_aNoBytes;
    return static_cast<const unsigned char*>(pData);
}

}  // namespace capi
