#pragma once

#include <cstdint>

#include "platform/CmTypes.h"

/// Names one run of data that the host wants to read or write.
struct tagDataInfo {
    std::uint16_t wDataType;  ///< the kind of data
    CmUint32 dwFileID;        ///< the id of the file that holds it
    CmUint32 dwDataLen;       ///< the host's own; copied and traced, otherwise not used
    std::uint8_t byFileType;  ///< bit mask of the file kinds in which the data may be
};

/// Names one record file, or one stream of a downloaded recording.
struct tagFileDescriber {
    std::uint16_t wDataType;  ///< the kind of data that the file holds
    std::uint8_t byFileType;  ///< the file's kind: a single bit (1, 2 and 4 occur)
    CmUint32 dwFileID;        ///< the file's id
    CmUint32 dwExtraInfo;     ///< the host's own; stored with the describer, not used
};

/// Whether aDataInfo designates aDescriber: same type, same id, at least one file kind in common.
/// If several describers match, lookups use the one that was added first.
inline bool DataInfoMatches(const tagDataInfo& aDataInfo, const tagFileDescriber& aDescriber) {
    return aDataInfo.wDataType == aDescriber.wDataType &&
           aDataInfo.dwFileID == aDescriber.dwFileID &&
           (aDataInfo.byFileType & aDescriber.byFileType) != 0;
}
