#include "core/HomeDir.h"

#include <new>

#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

namespace {

constexpr char c_cSeparator = '\\';

}  // namespace

CmInt32 CHomeDir::OutOfMemory() const {
    TraceError(m_lpOperation, "->Low memory to change a directory", " this=", m_pObject);
    return CACHE_ERR_OUT_OF_MEMORY;
}

CmInt32 CHomeDir::Set(const CCmString& strNew) try {
    CCmString strResult(strNew);  // a copy, so that a failure leaves the directory as it was
    if (!strResult.empty() && strResult.back() != c_cSeparator) strResult += c_cSeparator;
    m_strDirectory.swap(strResult);
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return OutOfMemory();
}

CmInt32 CHomeDir::AppendRecord(const CCmString& strHome, CmUint32 dwRecordID) try {
    m_strDirectory += strHome + std::to_string(dwRecordID) + c_cSeparator;
    return CACHE_OK;
} catch (const std::bad_alloc&) {
    return OutOfMemory();
}
