#include "download/EntryBytes.h"

#include <optional>

#include "platform/CmResult.h"

using cachefile_internal::DescriberOf;
using cachefile_internal::FindContainerTag;

namespace {

/// The smallest n with n * 1000 = dwProduct modulo 2^32. Since 1000 is 8 * 125, n exists only for
/// multiples of 8, and 125 has an inverse modulo 2^29.
std::optional<CmUint32> DivideByMagicNumber(CmUint32 dwProduct) {
    constexpr std::uint32_t c_dwInverse = 0x26E978D5;  // of 125, modulo 2^32
    static_assert(std::uint32_t{125} * c_dwInverse == 1, "this is the inverse of 125");
    if (dwProduct % 8 != 0) return std::nullopt;
    return (dwProduct / 8 * c_dwInverse) & 0x1FFFFFFF;
}

}  // namespace

CmInt32 TagToFileDescriber(const tagMRFD& aEntry, tagFileDescriber& aDescriber) {
    const tagContainerTag* const pTag = FindContainerTag(aEntry.wTag);
    if (!pTag) return CACHE_ERR_UNKNOWN_TAG;
    aDescriber = DescriberOf(*pTag, aEntry.dwEntryID, aEntry.dwExtraInfo);
    return CACHE_OK;
}

CmInt32 FileDescriberToTag(const tagFileDescriber& aDescriber, tagMRFD& aEntry) {
    for (const tagContainerTag& aTag : c_aContainerTags) {
        if (aTag.wDataType != aDescriber.wDataType || aTag.byFileType != aDescriber.byFileType)
            continue;
        const std::optional<CmUint32> dwEntryID =
            aTag.bFixedID ? CmUint32{0}
                          : DivideByMagicNumber(aDescriber.dwFileID - aDescriber.wDataType);
        if (!dwEntryID || DescriberOf(aTag, *dwEntryID, 0).dwFileID != aDescriber.dwFileID) break;
        aEntry.wTag = aTag.wTag;
        aEntry.dwEntryID = *dwEntryID;
        aEntry.dwExtraInfo = aDescriber.dwExtraInfo;
        return CACHE_OK;
    }
    return CACHE_ERR_UNKNOWN_TAG;
}
