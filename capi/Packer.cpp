#include <memory>

#include "capi/HostText.h"
#include "capi/Records.h"
#include "download/ContainerWriter.h"

struct cachefile_packer {
    CContainerWriter m_writer;
};

int32_t cachefile_packer_create(cachefile_packer** packer) {
    return capi::Guarded([&] {
        if (!packer) return CACHEFILE_ERR_INVALID_ARG;
        *packer = new cachefile_packer;
        return CACHEFILE_OK;
    });
}

void cachefile_packer_destroy(cachefile_packer* packer) { delete packer; }

int32_t cachefile_packer_set_index_type(cachefile_packer* packer, uint32_t index_type) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!packer) return CACHEFILE_ERR_INVALID_ARG;
        return packer->m_writer.SetIndexType(index_type);
    });
}

int32_t cachefile_packer_set_header(cachefile_packer* packer, uint32_t file_version,
                                    uint32_t cb_time_stamp) {
    return capi::Guarded([&] {
        if (!packer) return CACHEFILE_ERR_INVALID_ARG;
        packer->m_writer.SetFileHeader(file_version, cb_time_stamp);
        return CACHEFILE_OK;
    });
}

int32_t cachefile_packer_add_memory(cachefile_packer* packer, const cachefile_describer* describer,
                                    const void* data, uint32_t length) {
    return capi::Guarded([&]() -> std::int32_t {
        tagFileDescriber aDescriber{};
        const unsigned char* const lpData = capi::BytesOf(data, length);
        if (!packer || !lpData || !capi::TakeDescriber(describer, aDescriber))
            return CACHEFILE_ERR_INVALID_ARG;
        return packer->m_writer.AddStream(aDescriber, lpData, length);
    });
}

int32_t cachefile_packer_add_file(cachefile_packer* packer, const cachefile_describer* describer,
                                  const char* path) {
    return capi::Guarded([&]() -> std::int32_t {
        tagFileDescriber aDescriber{};
        CCmString strPath;
        if (!packer || !capi::TakeLocalPath(path, strPath) ||
            !capi::TakeDescriber(describer, aDescriber))
            return CACHEFILE_ERR_INVALID_ARG;
        return packer->m_writer.AddStreamFile(aDescriber, strPath);
    });
}

int32_t cachefile_packer_add_tag_memory(cachefile_packer* packer, uint16_t tag, uint32_t entry_id,
                                        uint32_t extra_info, const void* data, uint32_t length) {
    return capi::Guarded([&]() -> std::int32_t {
        const unsigned char* const lpData = capi::BytesOf(data, length);
        if (!packer || !lpData) return CACHEFILE_ERR_INVALID_ARG;
        return packer->m_writer.AddTagStream(tag, entry_id, extra_info, lpData, length);
    });
}

int32_t cachefile_packer_add_tag_file(cachefile_packer* packer, uint16_t tag, uint32_t entry_id,
                                      uint32_t extra_info, const char* path) {
    return capi::Guarded([&]() -> std::int32_t {
        CCmString strPath;
        if (!packer || !capi::TakeLocalPath(path, strPath)) return CACHEFILE_ERR_INVALID_ARG;
        return packer->m_writer.AddTagStreamFile(tag, entry_id, extra_info, strPath);
    });
}

int32_t cachefile_packer_write(cachefile_packer* packer, const char* path) {
    return cachefile_packer_write_progress(packer, path, nullptr, nullptr);
}

int32_t cachefile_packer_write_progress(cachefile_packer* packer, const char* path,
                                        cachefile_progress progress, void* user) {
    return capi::Guarded([&]() -> std::int32_t {
        CCmString strPath;
        if (!packer || !capi::TakeUtf8Path(path, strPath)) return CACHEFILE_ERR_INVALID_ARG;
        CContainerWriter::Progress aProgress;
        if (progress)
            aProgress = [=](std::uint64_t qwDone, std::uint64_t qwTotal) noexcept {
                return progress(user, qwDone, qwTotal) != 0;
            };
        return packer->m_writer.Write(strPath, aProgress);
    });
}
