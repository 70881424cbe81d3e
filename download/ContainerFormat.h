#pragma once

#include <cstddef>
#include <cstdint>

#include "core/DataInfo.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// The layout of a downloaded recording, the container: one file that holds all streams of a
/// recording behind an index. docs/container-format.md shows it with an example. Reader and writer
/// share this header; it is the truth about the format.
///
/// All integers are unsigned and little-endian, all offsets absolute. What is called reserved is
/// read but plays no part; the writer sets it to 0.

/// At offset 0.
struct tagQXFFileHeader {
    std::uint16_t wReserved0;
    std::uint16_t wReserved2;
    CmUint32 dwReserved4;
    CmUint32 dwFileSize;    ///< size of the container, not 0; data reads end at or before it
    CmUint32 dwMustBeZero;  ///< any other value rejects the file
    CmUint32 dwEntryCount;  ///< number of index entries, not 0
    CmUint32 dwIndexType;   ///< Index_Packed or Index_Chained
};

/// One entry of the index. The first one lies behind the file header.
struct tagMRFD {
    std::uint16_t wTag;  ///< the kind of stream, see c_aContainerTags
    std::uint16_t wReserved2;
    CmUint32 dwEntryID;    ///< n, from which the file id is formed: n * 1000 + data type
    CmUint32 dwExtraInfo;  ///< goes unchanged into the describer
    CmUint32 dwReserved12;
    CmUint32 dwDataOffset;  ///< where the stream's bytes begin
    CmUint32 dwStreamSize;  ///< their number as our writer notes it; others may note anything
    CmUint32 dwNextOffset;  ///< where the next entry lies; Index_Chained only
    CmUint32 dwReserved28;
};

/// What the data of the conf stream (tag 274) begins with, and a record file of most data types.
struct tagEntryFileHeader {
    CmUint32 dwReserved0;
    CmUint32 dwReserved4;
    CmUint32 dwFileVersion;
    CmUint32 aReserved12[10];
    CmUint32 dwCBTimeStamp;
    CmUint32 aReserved56[4];
};

/// A known entry as the reader keeps it.
struct tagMRFDInfo {
    tagFileDescriber aDescriber;
    tagMRFD aEntry;
};

/// Where a stream of a container ends, as far as the index tells. Lengths are below 4 GiB, as
/// offsets are.
struct tagStreamExtent {
    /// Up to what begins next, or to the end that the header gives. Of streams that begin at the
    /// same place only the last one has these bytes; the others have as many as they note, or none
    /// if that does not fit.
    CmUint32 dwExtent;
    /// The length of the stream: the noted one where notes hold, else dwExtent.
    CmUint32 dwLength;
    /// How many bytes the entry notes beyond these, if notes hold: something begins too early.
    CmUint32 dwLacking;
};

enum : CmUint32 {
    c_dwFileHeaderSize = 24,
    c_dwEntrySize = 32,
    c_dwEntryFileHeaderSize = 72,

    c_dwFileVersionOffset = 8,   ///< within the entry file header
    c_dwCBTimeStampOffset = 52,  ///< within the entry file header

    Index_Packed = 0,   ///< the entries follow one another
    Index_Chained = 1,  ///< each entry says where the next one lies

    c_dwMaxKnownEntries = 1048576,  ///< how many known entries a reader keeps at most
    c_dwMaxEntriesRead = 4194304,   ///< how many entries, known or not, a walk reads at most
};

/// Whether these are the words of a container that a reader accepts.
inline bool IsContainerHeader(const tagQXFFileHeader& aHeader) {
    return aHeader.dwFileSize != 0 && aHeader.dwMustBeZero == 0 && aHeader.dwEntryCount != 0 &&
           (aHeader.dwIndexType == Index_Packed || aHeader.dwIndexType == Index_Chained);
}

/// Where the entry behind aEntry lies, which itself lies at qwOffset.
inline std::uint64_t NextEntryOffset(CmUint32 dwIndexType, const tagMRFD& aEntry,
                                     std::uint64_t qwOffset) {
    return dwIndexType == Index_Packed ? qwOffset + c_dwEntrySize : aEntry.dwNextOffset;
}

constexpr std::uint16_t c_wConfTag = 274;

/// One kind of stream that a container can hold.
struct tagContainerTag {
    std::uint16_t wTag;
    std::uint16_t wDataType;
    std::uint8_t byFileType;
    bool bFixedID;  ///< the file id is the data type itself, whatever n says
};

/// All kinds there are; any other tag is unknown and passed over.
constexpr tagContainerTag c_aContainerTags[] = {
    {256, 1, 2, false},  {257, 3, 2, false},  {258, 8, 2, false},  {259, 10, 2, false},
    {260, 16, 2, false}, {261, 5, 4, false},  {266, 99, 4, false}, {267, 99, 1, false},
    {268, 4, 4, false},  {269, 4, 1, false},  {270, 20, 4, false}, {271, 20, 1, false},
    {272, 21, 4, false}, {273, 21, 1, false}, {274, 100, 2, true}, {276, 6, 4, false},
    {277, 6, 1, false},  {284, 102, 2, true}, {286, 51, 4, false}, {287, 51, 1, false},
};

/// Parse a record from its bytes, as many as the size above says. 0, or CACHE_ERR_FAILED when a
/// field could not be read, which a complete source rules out. Any thread.
CACHEFILE_API CmInt32 BuildQXFFileHeader(const unsigned char* lpSource, tagQXFFileHeader& aHeader);
CACHEFILE_API CmInt32 BuildQXFEntry(const unsigned char* lpSource, tagMRFD& aEntry);
CACHEFILE_API CmInt32 BuildEntryFileHeader(const unsigned char* lpSource,
                                           tagEntryFileHeader& aHeader);

/// The describer of an entry. 0, or CACHE_ERR_UNKNOWN_TAG with aDescriber as it was.
CACHEFILE_API CmInt32 TagToFileDescriber(const tagMRFD& aEntry, tagFileDescriber& aDescriber);

/// Sets tag, entry id (the smallest that will do) and extra value of an entry so that it yields
/// aDescriber. 0, or CACHE_ERR_UNKNOWN_TAG with aEntry as it was when no tag has this type and
/// kind or no n gives the id.
CACHEFILE_API CmInt32 FileDescriberToTag(const tagFileDescriber& aDescriber, tagMRFD& aEntry);
