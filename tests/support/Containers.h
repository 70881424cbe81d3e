#pragma once

#include <vector>

#include "core/DataInfo.h"
#include "tests/support/Files.h"

/// Containers made by hand, field by field: what is written down here about the format is written
/// down a second time, so that neither the library's writer nor its table plays a part.

constexpr unsigned c_nHeader = 24;
constexpr unsigned c_nEntry = 32;
constexpr unsigned c_nConfHeader = 72;
constexpr CmUint32 c_dwBudget = 1048576;  ///< known entries that a reader keeps

/// A kind of stream.
struct TagRow {
    unsigned wTag;
    unsigned wDataType;
    unsigned byFileType;
};
extern const TagRow c_aTagRows[20];
constexpr unsigned c_wConf = 274;
constexpr unsigned c_wUnknown = 262;

/// The row of a tag, null for an unknown one.
const TagRow* FindTagRow(unsigned wTag);
tagFileDescriber DescriberOf(unsigned wTag, CmUint32 dwEntryID, CmUint32 dwExtraInfo);
tagDataInfo InfoOf(const tagFileDescriber& aDescriber);
bool operator==(const tagFileDescriber& aOne, const tagFileDescriber& aOther);
std::ostream& operator<<(std::ostream& aOut, const tagFileDescriber& aDescriber);

/// Little-endian fields. A set beyond the end makes the bytes longer.
void Set16(CCmString& strBytes, std::size_t nAt, unsigned nValue);
void Set32(CCmString& strBytes, std::size_t nAt, CmUint32 dwValue);
CmUint32 Get16(const CCmString& strBytes, std::size_t nAt);
CmUint32 Get32(const CCmString& strBytes, std::size_t nAt);

struct HandEntry {
    unsigned wTag;
    CmUint32 dwEntryID = 0;
    CmUint32 dwExtraInfo = 0;
    CmUint32 dwDataOffset = 0;
    CmUint32 dwNextOffset = 0;
};

/// What the format leaves free is filled with values that mustn't matter.
void SetHeader(CCmString& strBytes, CmUint32 dwFileSize, CmUint32 dwCount, CmUint32 dwIndexType);
void SetEntry(CCmString& strBytes, std::size_t nAt, const HandEntry& aEntry);

/// 72 bytes of a conf stream, and more if nLength says so.
CCmString ConfBytes(CmUint32 dwVersion, CmUint32 dwTimeStamp, std::size_t nLength = c_nConfHeader);

/// A stream of a model.
struct HandStream {
    unsigned wTag;
    CmUint32 dwEntryID;
    CmUint32 dwExtraInfo;
    CCmString strBytes;

    tagFileDescriber Describer() const { return DescriberOf(wTag, dwEntryID, dwExtraInfo); }
};

/// Random streams with different describers, a conf stream among them or not. nAtLeast of the
/// twenty tags are there.
std::vector<HandStream> RandomStreams(SeededRandom& aRandom, unsigned nAtLeast);
