#pragma once

#include "capi/Call.h"
#include "core/DataInfo.h"

/// Conversions between the structs of the C interface and the records of the C++ interface. A Take
/// function returns false if the host's struct is invalid.
namespace capi {

inline bool TakeDescriber(const cachefile_describer* pHost, tagFileDescriber& aDescriber) {
    cachefile_describer aTaken;
    if (!TakeStruct(pHost, aTaken) || !IsZero(aTaken.reserved)) return false;
    aDescriber = {aTaken.data_type, aTaken.file_kind, aTaken.file_id, aTaken.extra_info};
    return true;
}

inline bool GiveDescriber(const tagFileDescriber& aDescriber, cachefile_describer* pHost) {
    cachefile_describer aGiven = CACHEFILE_DESCRIBER_INIT;
    aGiven.file_id = aDescriber.dwFileID;
    aGiven.extra_info = aDescriber.dwExtraInfo;
    aGiven.data_type = aDescriber.wDataType;
    aGiven.file_kind = aDescriber.byFileType;
    return GiveStruct(aGiven, pHost);
}

inline bool TakeDataInfo(const cachefile_data_info* pHost, tagDataInfo& aDataInfo) {
    cachefile_data_info aTaken;
    if (!TakeStruct(pHost, aTaken) || !IsZero(aTaken.reserved)) return false;
    aDataInfo = {aTaken.data_type, aTaken.file_id, aTaken.data_length, aTaken.file_kinds};
    return true;
}

/// The bytes of a write. A host may pass null with length 0, but the library refuses null.
inline const unsigned char* BytesOf(const void* pData, std::uint32_t dwLength) {
    static const unsigned char s_aNoBytes[1] = {0};
    if (!pData && dwLength == 0) return s_aNoBytes;
    return static_cast<const unsigned char*>(pData);
}

}  // namespace capi
