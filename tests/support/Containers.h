#pragma once

#include <vector>

#include "core/DataInfo.h"
#include "tests/support/Files.h"

/// Builds containers field by field. It defines the format a second time, independently of the
/// library's writer and its table.

constexpr unsigned c_nHeader = 24;
constexpr unsigned c_nEntry = 32;
constexpr unsigned c_nConfHeader = 72;
constexpr CmUint32 c_dwBudget = 1048576;  ///< the most known entries that a reader keeps

/// A tag and the streams that it stands for.
struct TagRow {
    unsigned wTag;
    unsigned wDataType;
    unsigned byFileType;
};
extern const TagRow c_aTagRows[20];
constexpr unsigned c_wConf = 274;
constexpr unsigned c_wUnknown = 262;

/// Returns the row of a tag, or null for an unknown tag.
const TagRow* FindTagRow(unsigned wTag);
tagFileDescriber DescriberOf(unsigned wTag, CmUint32 dwEntryID, CmUint32 dwExtraInfo);
tagDataInfo InfoOf(const tagFileDescriber& aDescriber);
bool operator==(const tagFileDescriber& aOne, const tagFileDescriber& aOther);
std::ostream& operator<<(std::ostream& aOut, const tagFileDescriber& aDescriber);

/// Access to little-endian fields. Setting a field past the end extends the bytes.
void Set32(CCmString& strBytes, std::size_t nAt, CmUint32 dwValue);
CmUint32 Get32(const CCmString& strBytes, std::size_t nAt);

struct HandEntry {
    unsigned wTag;
    CmUint32 dwEntryID = 0;
    CmUint32 dwExtraInfo = 0;
    CmUint32 dwDataOffset = 0;
    CmUint32 dwNextOffset = 0;
};

/// Reserved fields get values other than 0, which readers must ignore.
void SetHeader(CCmString& strBytes, CmUint32 dwFileSize, CmUint32 dwCount, CmUint32 dwIndexType);
void SetEntry(CCmString& strBytes, std::size_t nAt, const HandEntry& aEntry);

/// The header of a conf stream, and more bytes if nLength is larger than 72.
CCmString ConfBytes(CmUint32 dwVersion, CmUint32 dwTimeStamp, std::size_t nLength = c_nConfHeader);

/// A stream of the model.
struct HandStream {
    unsigned wTag;
    CmUint32 dwEntryID;
    CmUint32 dwExtraInfo;
    CCmString strBytes;

    tagFileDescriber Describer() const { return DescriberOf(wTag, dwEntryID, dwExtraInfo); }
};
