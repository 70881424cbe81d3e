#include "capi/HostText.h"
#include "capi/Records.h"
#include "download/ContainerIndex.h"

struct cachefile_index {
    CContainerIndex m_index;
};

static_assert(int{CACHEFILE_WALK_NONE} == CContainerIndex::Walk_None &&
                  int{CACHEFILE_WALK_COMPLETE} == CContainerIndex::Walk_Complete &&
                  int{CACHEFILE_WALK_CUT_OFF} == CContainerIndex::Walk_CutOff &&
                  int{CACHEFILE_WALK_CIRCLE} == CContainerIndex::Walk_Circle &&
                  int{CACHEFILE_WALK_TOO_MANY} == CContainerIndex::Walk_TooMany,
              "one numbering for both interfaces");

int32_t cachefile_index_create(cachefile_index** index) {
    return capi::Guarded([&] {
        if (!index) return CACHEFILE_ERR_INVALID_ARG;
        *index = new cachefile_index;
        return CACHEFILE_OK;
    });
}

void cachefile_index_destroy(cachefile_index* index) { delete index; }

int32_t cachefile_index_open(cachefile_index* index, const char* path) {
    return capi::Guarded([&]() -> std::int32_t {
        CCmString strPath;
        if (!index || !capi::TakeUtf8Path(path, strPath)) return CACHEFILE_ERR_INVALID_ARG;
        return index->m_index.Open(strPath);
    });
}

uint64_t cachefile_index_file_size(const cachefile_index* index) {
    return index ? index->m_index.GetFileSize() : 0;
}

int32_t cachefile_index_get_header(const cachefile_index* index,
                                   cachefile_container_header* header) {
    if (!index) return CACHEFILE_ERR_INVALID_ARG;
    const tagQXFFileHeader& aHeader = index->m_index.GetFileHeader();
    cachefile_container_header aFilled = CACHEFILE_CONTAINER_HEADER_INIT;
    aFilled.file_size = aHeader.dwFileSize;
    aFilled.must_be_zero = aHeader.dwMustBeZero;
    aFilled.entry_count = aHeader.dwEntryCount;
    aFilled.index_type = aHeader.dwIndexType;
    return capi::FillStruct(aFilled, header) ? CACHEFILE_OK : CACHEFILE_ERR_INVALID_ARG;
}

size_t cachefile_index_entry_count(const cachefile_index* index) {
    return index ? index->m_index.GetEntryCount() : 0;
}

int32_t cachefile_index_get_entry(const cachefile_index* index, size_t number,
                                  cachefile_index_entry* entry) {
    if (!index || number >= index->m_index.GetEntryCount()) return CACHEFILE_ERR_INVALID_ARG;
    const tagIndexEntry& aFound = index->m_index.GetEntry(number);
    tagFileDescriber aDescriber{};
    TagToFileDescriber(aFound.aEntry, aDescriber);
    cachefile_index_entry aFilled = CACHEFILE_INDEX_ENTRY_INIT;
    aFilled.offset = aFound.dwOffset;
    aFilled.entry_id = aFound.aEntry.dwEntryID;
    aFilled.extra_info = aFound.aEntry.dwExtraInfo;
    aFilled.data_offset = aFound.aEntry.dwDataOffset;
    aFilled.noted_length = aFound.aEntry.dwStreamSize;
    aFilled.next_offset = aFound.aEntry.dwNextOffset;
    aFilled.tag = aFound.aEntry.wTag;
    aFilled.data_type = aDescriber.wDataType;
    aFilled.file_id = aDescriber.dwFileID;
    aFilled.file_kind = aDescriber.byFileType;
    return capi::FillStruct(aFilled, entry) ? CACHEFILE_OK : CACHEFILE_ERR_INVALID_ARG;
}

int32_t cachefile_index_stream_length(const cachefile_index* index, size_t number,
                                      uint32_t* length) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!index || !length) return CACHEFILE_ERR_INVALID_ARG;
        CmUint32 dwLength = 0;
        const CmInt32 lResult = index->m_index.GetStreamLength(number, dwLength);
        if (lResult == CACHEFILE_OK) *length = static_cast<std::uint32_t>(dwLength);
        return lResult;
    });
}

int32_t cachefile_index_end_of_walk(const cachefile_index* index) {
    return index ? static_cast<std::int32_t>(index->m_index.GetEndOfWalk()) : CACHEFILE_WALK_NONE;
}

uint64_t cachefile_index_end_offset(const cachefile_index* index) {
    return index ? index->m_index.GetEndOffset() : 0;
}

int32_t cachefile_index_get_conf(const cachefile_index* index, uint32_t* file_version,
                                 uint32_t* cb_time_stamp) {
    if (!index) return CACHEFILE_ERR_INVALID_ARG;
    const tagEntryFileHeader* const pHeader = index->m_index.GetConfFileHeader();
    if (!pHeader) return CACHEFILE_ERR_NOT_OPEN;
    if (file_version) *file_version = pHeader->dwFileVersion;
    if (cb_time_stamp) *cb_time_stamp = pHeader->dwCBTimeStamp;
    return CACHEFILE_OK;
}

int32_t cachefile_index_read(cachefile_index* index, uint64_t offset, void* buffer, uint32_t length,
                             uint32_t* read) {
    if (read) *read = 0;
    return capi::Guarded([&]() -> std::int32_t {
        if (!index || !buffer || !read) return CACHEFILE_ERR_INVALID_ARG;
        CmUint32 dwRead = length;
        const CmInt32 lResult =
            index->m_index.ReadData(offset, static_cast<unsigned char*>(buffer), dwRead);
        if (lResult == CACHEFILE_OK) *read = static_cast<std::uint32_t>(dwRead);
        return lResult;
    });
}
