#pragma once

#include <cstdint>

#include "platform/CmTypes.h"

/// Selects the data that the host reads or writes.
struct tagDataInfo {
    std::uint16_t wDataType;  ///< the kind of data
    CmUint32 dwFileID;        ///< the id of the file that holds it
    CmUint32 dwDataLen;       ///< the host's own value; only copied and traced
    std::uint8_t byFileType;  ///< bit mask of the file kinds in which the data may be
};

/// Describes one record file, or one stream of a downloaded recording.
struct tagFileDescriber {
    std::uint16_t wDataType;  ///< the kind of data that the file holds
    std::uint8_t byFileType;  ///< the file's kind: a single bit (1, 2 or 4)
    CmUint32 dwFileID;        ///< the file's id
    CmUint32 dwExtraInfo;     ///< the host's own value; only stored
};

namespace cachefile_internal {

/// A file id that the library composes is a number of the file times this, plus the data type.
constexpr CmUint32 c_dwFileIDMagicNumber = 1000;

}  // namespace cachefile_internal

/// Whether aDataInfo selects aDescriber: same type, same id, at least one common file kind.
/// If several describers match, lookups use the one that was added first.
inline bool DataInfoMatches(const tagDataInfo& aDataInfo, const tagFileDescriber& aDescriber) {
    return aDataInfo.wDataType == aDescriber.wDataType &&
           aDataInfo.dwFileID == aDescriber.dwFileID &&
           (aDataInfo.byFileType & aDescriber.byFileType) != 0;
}
