#pragma once

#include "capi/Call.h"
#include "core/FileOpSink.h"

namespace capi {

/// The host's callbacks. Status and Data are noexcept, so an exception of a callback ends the
/// process here and does not reach C code.
///
/// A callback may destroy the handle that owns this object, so neither the object nor its owner is
/// used after the call.
class CCallbacks {
 public:
    /// Copies the callbacks; null means none. Returns false if the struct is invalid.
    bool Take(const cachefile_callbacks* pCallbacks) {
        return !pCallbacks || CopyStruct(pCallbacks, m_callbacks);
    }

    bool WantsData() const { return m_callbacks.on_data; }

    void Status(CCacheFileManager::OpType aOpType, CmInt32 lResult) const noexcept {
        if (m_callbacks.on_status)
            m_callbacks.on_status(m_callbacks.user, static_cast<std::int32_t>(aOpType),
                                  static_cast<std::int32_t>(lResult));
    }

    void Data(void* pRequest, void* pData, CmUint32 dwLength,
              const tagDataInfo& aDataInfo) const noexcept {
        cachefile_data_info aInfo = CACHEFILE_DATA_INFO_INIT;
        aInfo.file_id = aDataInfo.dwFileID;
        aInfo.data_length = aDataInfo.dwDataLen;
        aInfo.data_type = aDataInfo.wDataType;
        aInfo.file_kinds = aDataInfo.byFileType;
        m_callbacks.on_data(m_callbacks.user, pRequest, pData, dwLength, &aInfo);
    }

 private:
    cachefile_callbacks m_callbacks = CACHEFILE_CALLBACKS_INIT;
};

}  // namespace capi
