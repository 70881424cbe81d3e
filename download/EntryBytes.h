#pragma once

#include "download/ContainerFormat.h"
#include "platform/CmByteStream.h"

/// The fields of an index entry in its 32 bytes, for code that needs few of them of many entries.
/// The fields are those of tagMRFD. Any thread.
namespace cachefile_internal {

inline std::uint16_t EntryTag(const unsigned char* lpEntry) { return Get16(lpEntry); }
inline CmUint32 EntryID(const unsigned char* lpEntry) { return Get32(lpEntry + 4); }
inline CmUint32 EntryExtraInfo(const unsigned char* lpEntry) { return Get32(lpEntry + 8); }
inline CmUint32 EntryDataOffset(const unsigned char* lpEntry) { return Get32(lpEntry + 16); }
inline CmUint32 EntryStreamSize(const unsigned char* lpEntry) { return Get32(lpEntry + 20); }
inline CmUint32 EntryNextOffset(const unsigned char* lpEntry) { return Get32(lpEntry + 24); }

/// The rows of c_aContainerTags by their tags, from the smallest to the largest tag.
struct tagTagRows {
    static constexpr std::uint16_t c_wFirst = 256;
    static constexpr std::uint16_t c_wLast = 287;

    constexpr tagTagRows() {
        for (const tagContainerTag& aTag : c_aContainerTags) aRows[aTag.wTag - c_wFirst] = aTag;
    }

    tagContainerTag aRows[c_wLast - c_wFirst + 1] = {};  // all 0 for an unknown tag
};
inline constexpr tagTagRows c_aTagRows{};

/// Returns the row of a tag, or null if the tag is unknown.
inline const tagContainerTag* FindContainerTag(std::uint16_t wTag) {
    if (wTag < tagTagRows::c_wFirst || wTag > tagTagRows::c_wLast) return nullptr;
    const tagContainerTag& aRow = c_aTagRows.aRows[wTag - tagTagRows::c_wFirst];
    return aRow.wTag != 0 ? &aRow : nullptr;
}

/// Returns the describer of an entry whose tag has the row aTag.
inline tagFileDescriber DescriberOf(const tagContainerTag& aTag, CmUint32 dwEntryID,
                                    CmUint32 dwExtraInfo) {
    const CmUint32 dwBase = aTag.bFixedID ? 0 : dwEntryID * c_dwFileIDMagicNumber;
    return {aTag.wDataType, aTag.byFileType, dwBase + aTag.wDataType, dwExtraInfo};
}

/// Returns the describer of an entry of a known kind.
inline tagFileDescriber DescriberOfEntry(const unsigned char* lpEntry) {
    return DescriberOf(*FindContainerTag(EntryTag(lpEntry)), EntryID(lpEntry),
                       EntryExtraInfo(lpEntry));
}

}  // namespace cachefile_internal
