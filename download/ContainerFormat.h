#pragma once

#include <cstddef>
#include <cstdint>

#include "core/DataInfo.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

// The format of a downloaded recording, the container: one file with all streams of a recording
// after an index. docs/container-format.md has an example. Reader and writer share this header.
//
// All integers are unsigned and little-endian. All offsets count from the start of the file.
// Reserved fields are read but not used; the writer sets them to 0.

/// At offset 0.
struct tagQXFFileHeader {
    std::uint16_t wReserved0;
    std::uint16_t wReserved2;
    CmUint32 dwReserved4;
    CmUint32 dwFileSize;  ///< size of the container, not 0; reads of data must end at or before it
    CmUint32 dwMustBeZero;  ///< any other value rejects the file
    CmUint32 dwEntryCount;  ///< number of index entries, not 0
    CmUint32 dwIndexType;   ///< Index_Packed or Index_Chained
};

/// One entry of the index. The first one follows the file header.
struct tagMRFD {
    std::uint16_t wTag;  ///< the kind of stream, see c_aContainerTags
    std::uint16_t wReserved2;
    CmUint32 dwEntryID;    ///< n; the file id is n * 1000 + data type
    CmUint32 dwExtraInfo;  ///< copied to the describer
    CmUint32 dwReserved12;
    CmUint32 dwDataOffset;  ///< of the first byte of the stream
    CmUint32 dwStreamSize;  ///< length as noted by this library's writer; others may note anything
    CmUint32 dwNextOffset;  ///< of the next entry; Index_Chained only
    CmUint32 dwReserved28;
};

/// The first bytes of the conf stream (tag 274), and of record files of most data types.
struct tagEntryFileHeader {
    CmUint32 dwReserved0;
    CmUint32 dwReserved4;
    CmUint32 dwFileVersion;
    CmUint32 aReserved12[10];
    CmUint32 dwCBTimeStamp;
    CmUint32 aReserved56[4];
};

/// A known entry and its describer.
struct tagMRFDInfo {
    tagFileDescriber aDescriber;
    tagMRFD aEntry;
};

/// Where a stream of a container ends, derived from the index. Lengths are below 4 GiB, like
/// offsets.
struct tagStreamExtent {
    /// The bytes up to the next part of the container, or to the end given in the header. If
    /// several streams begin at the same place, the last one has these bytes. The others have as
    /// many as they note, or none if the note does not fit.
    CmUint32 dwExtent;
    /// The length of the stream: the noted length if notes are valid, otherwise dwExtent.
    CmUint32 dwLength;
    /// How many bytes more the entry notes, if notes are valid: the next part begins too early.
    CmUint32 dwLacking;
};

enum : CmUint32 {
    c_dwFileHeaderSize = 24,
    c_dwEntrySize = 32,
    c_dwEntryFileHeaderSize = 72,

    c_dwFileVersionOffset = 8,   ///< within the entry file header
    c_dwCBTimeStampOffset = 52,  ///< within the entry file header

    Index_Packed = 0,   ///< the entries follow one another
    Index_Chained = 1,  ///< each entry has the offset of the next one

    c_dwMaxKnownEntries = 1048576,  ///< how many known entries a reader keeps
    c_dwMaxEntriesRead = 4194304,   ///< how many entries a walk reads, known or not
};

/// Whether a reader accepts a container with this header.
inline bool IsContainerHeader(const tagQXFFileHeader& aHeader) {
    return aHeader.dwFileSize != 0 && aHeader.dwMustBeZero == 0 && aHeader.dwEntryCount != 0 &&
           (aHeader.dwIndexType == Index_Packed || aHeader.dwIndexType == Index_Chained);
}

constexpr std::uint16_t c_wConfTag = 274;

/// One kind of stream that a container can hold.
struct tagContainerTag {
    std::uint16_t wTag;
    std::uint16_t wDataType;
    std::uint8_t byFileType;
    bool bFixedID;  ///< the file id is the data type; n is ignored
};

/// All kinds of streams. Entries with other tags are unknown, and readers skip them.
constexpr tagContainerTag c_aContainerTags[] = {
    {256, 1, 2, false},  {257, 3, 2, false},  {258, 8, 2, false},  {259, 10, 2, false},
    {260, 16, 2, false}, {261, 5, 4, false},  {266, 99, 4, false}, {267, 99, 1, false},
    {268, 4, 4, false},  {269, 4, 1, false},  {270, 20, 4, false}, {271, 20, 1, false},
    {272, 21, 4, false}, {273, 21, 1, false}, {274, 100, 2, true}, {276, 6, 4, false},
    {277, 6, 1, false},  {284, 102, 2, true}, {286, 51, 4, false}, {287, 51, 1, false},
};

/// Parse a record from its bytes; their number is the size above. Return 0, or CACHE_ERR_FAILED if
/// a field could not be read, which does not happen with that many bytes. Any thread.
CACHEFILE_API CmInt32 BuildQXFFileHeader(const unsigned char* lpSource, tagQXFFileHeader& aHeader);
CACHEFILE_API CmInt32 BuildQXFEntry(const unsigned char* lpSource, tagMRFD& aEntry);
CACHEFILE_API CmInt32 BuildEntryFileHeader(const unsigned char* lpSource,
                                           tagEntryFileHeader& aHeader);

/// Sets aDescriber to the describer of an entry. Returns 0, or CACHE_ERR_UNKNOWN_TAG and leaves
/// aDescriber unchanged.
CACHEFILE_API CmInt32 TagToFileDescriber(const tagMRFD& aEntry, tagFileDescriber& aDescriber);

/// Sets tag, entry id and extra value of an entry so that aDescriber is its describer. If several
/// entry ids are possible, it takes the smallest. Returns 0. If no tag has this type and kind, or
/// no n gives the id, returns CACHE_ERR_UNKNOWN_TAG and leaves aEntry unchanged.
CACHEFILE_API CmInt32 FileDescriberToTag(const tagFileDescriber& aDescriber, tagMRFD& aEntry);
