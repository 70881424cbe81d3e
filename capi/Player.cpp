#include <cstring>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "capi/Callbacks.h"
#include "capi/HostText.h"
#include "capi/Records.h"
#include "player/PlayFileHandler.h"

/// A play handler with the host's callbacks. The host creates and frees it and calls it on one
/// thread.
///
/// The play handler owns the memory that it reads into, and may free it on either thread. So
/// each read goes into memory that is allocated here, and m_mapReads maps its address to the host's
/// request. If a read is discarded without a report, its entry stays until the address is used
/// again or the player is freed; it is never used. The object is not used after a callback, because
/// the callback may have freed it.
struct cachefile_player final : IFileOpSink {
    /// The destination of a read.
    struct tagRead {
        void* pRequest;          // for on_data
        void* pBuffer;           // the host's; if null, the host receives the memory itself
        std::uint32_t* pdwRead;  // for a synchronous read, which has no callback
    };

    std::int32_t Read(const cachefile_data_info* pInfo, std::uint32_t dwOffset,
                      std::uint32_t dwLength, const tagRead& aRead) {
        tagDataInfo aDataInfo{};
        if (!capi::TakeDataInfo(pInfo, aDataInfo)) return CACHEFILE_ERR_INVALID_ARG;
        std::unique_ptr<unsigned char[]> pMemory(new unsigned char[dwLength]);
        unsigned char* const lpMemory = pMemory.get();
        m_mapReads.insert_or_assign(lpMemory, aRead);
        const CmInt32 lResult = m_pHandler->ReadData(aDataInfo, lpMemory, dwOffset, dwLength);
        if (lResult == CACHE_OK)
            pMemory.release();  // owned by the play handler; a callback may have freed this object
        else
            m_mapReads.erase(lpMemory);
        return lResult;
    }

    void OnFileOpStatus(CCacheFileManager::LinkType /*aLinkType*/,
                        CCacheFileManager::OpType aOpType, CmInt32 aResult) override {
        m_callbacks.Status(aOpType, aResult);
    }

    void OnDataReady(unsigned char* lpData, CmUint32 dwLength,
                     const tagDataInfo& aDataInfo) override {
        const auto it = m_mapReads.find(lpData);
        const tagRead aRead = it->second;
        m_mapReads.erase(it);
        if (aRead.pBuffer) {
            std::memcpy(aRead.pBuffer, lpData, dwLength);
            delete[] lpData;
        }
        if (aRead.pdwRead)
            *aRead.pdwRead = static_cast<std::uint32_t>(dwLength);
        else
            m_callbacks.Data(aRead.pRequest, aRead.pBuffer ? aRead.pBuffer : lpData, dwLength,
                             aDataInfo);
    }

    capi::CCallbacks m_callbacks;
    CPlayFileHandler* m_pHandler = nullptr;
    bool m_bAsync = false;
    bool m_bContainer = false;  // the host has tried to open a container
    std::vector<tagFileDescriber> m_vecStreams;
    std::unordered_map<const unsigned char*, tagRead> m_mapReads;
};

int32_t cachefile_player_create(uint32_t record_id, uint32_t flags,
                                const cachefile_callbacks* callbacks, cachefile_player** player) {
    return capi::Guarded([&]() -> std::int32_t {
        constexpr std::uint32_t c_dwKnown = CACHEFILE_ASYNC | CACHEFILE_DOWNLOAD;
        if (!player || (flags & ~c_dwKnown)) return CACHEFILE_ERR_INVALID_ARG;
        auto pPlayer = std::make_unique<cachefile_player>();
        if (!pPlayer->m_callbacks.Take(callbacks)) return CACHEFILE_ERR_INVALID_ARG;
        pPlayer->m_bAsync = (flags & CACHEFILE_ASYNC) != 0;
        CPlayFileHandler* const pHandler = CCacheFileManager::Instance().CreatePlayFileHandler(
            record_id, (flags & CACHEFILE_DOWNLOAD) != 0, pPlayer->m_bAsync);
        if (!pHandler) return CACHEFILE_ERR_OUT_OF_MEMORY;
        const CmInt32 lResult = pHandler->Initialize(pPlayer.get());
        if (lResult != CACHE_OK) {
            pHandler->Destroy();
            return lResult;
        }
        pPlayer->m_pHandler = pHandler;
        *player = pPlayer.release();
        return CACHEFILE_OK;
    });
}

void cachefile_player_destroy(cachefile_player* player) {
    if (!player) return;
    player->m_pHandler->Destroy();
    delete player;
}

int32_t cachefile_player_set_dir(cachefile_player* player, const char* directory) {
    return capi::Guarded([&] {
        CCmString strDirectory;
        if (!player || !capi::TakeDirectory(directory, strDirectory))
            return CACHEFILE_ERR_INVALID_ARG;
        player->m_pHandler->SetHomeDir(strDirectory);
        return CACHEFILE_OK;
    });
}

int32_t cachefile_player_open_record(cachefile_player* player, const char* name,
                                     const cachefile_describer* describer, int32_t writable) {
    return capi::Guarded([&]() -> std::int32_t {
        CCmString strName;
        tagFileDescriber aDescriber{};
        if (!player || !capi::TakeName(name, strName) ||
            !capi::TakeDescriber(describer, aDescriber))
            return CACHEFILE_ERR_INVALID_ARG;
        return player->m_pHandler->OpenRecordFile(strName, aDescriber, writable);
    });
}

int32_t cachefile_player_open_container(cachefile_player* player, const char* path) {
    return capi::Guarded([&]() -> std::int32_t {
        CCmString strPath;
        if (!player || !capi::TakeUtf8Path(path, strPath)) return CACHEFILE_ERR_INVALID_ARG;
        const CmInt32 lResult =
            player->m_pHandler->OpenDownloadedFile(strPath, player->m_vecStreams);
        player->m_bContainer = player->m_bContainer || lResult != CACHE_ERR_INVALID_STATE;
        return lResult;
    });
}

size_t cachefile_player_stream_count(const cachefile_player* player) {
    return player ? player->m_vecStreams.size() : 0;
}

int32_t cachefile_player_get_stream(const cachefile_player* player, size_t index,
                                    cachefile_describer* describer) {
    if (!player || index >= player->m_vecStreams.size() ||
        !capi::FillDescriber(player->m_vecStreams[index], describer))
        return CACHEFILE_ERR_INVALID_ARG;
    return CACHEFILE_OK;
}

int32_t cachefile_player_stream_length(cachefile_player* player, const cachefile_data_info* info,
                                       uint32_t* length) {
    return capi::Guarded([&]() -> std::int32_t {
        tagDataInfo aDataInfo{};
        if (!player || !length || !capi::TakeDataInfo(info, aDataInfo))
            return CACHEFILE_ERR_INVALID_ARG;
        CmUint32 dwLength = 0;
        const CmInt32 lResult = player->m_pHandler->GetStreamLength(aDataInfo, dwLength);
        if (lResult == CACHE_OK) *length = static_cast<std::uint32_t>(dwLength);
        return lResult;
    });
}

int32_t cachefile_player_read(cachefile_player* player, const cachefile_data_info* info,
                              void* buffer, uint32_t offset, uint32_t length, void* request) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!player || !buffer) return CACHEFILE_ERR_INVALID_ARG;
        if (!player->m_callbacks.WantsData()) return CACHEFILE_ERR_INVALID_STATE;
        return player->Read(info, offset, length, {request, buffer, nullptr});
    });
}

int32_t cachefile_player_read_alloc(cachefile_player* player, const cachefile_data_info* info,
                                    uint32_t offset, uint32_t length, void* request) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!player) return CACHEFILE_ERR_INVALID_ARG;
        if (!player->m_callbacks.WantsData()) return CACHEFILE_ERR_INVALID_STATE;
        return player->Read(info, offset, length, {request, nullptr, nullptr});
    });
}

int32_t cachefile_player_read_sync(cachefile_player* player, const cachefile_data_info* info,
                                   void* buffer, uint32_t offset, uint32_t length, uint32_t* read) {
    if (read) *read = 0;
    return capi::Guarded([&]() -> std::int32_t {
        tagDataInfo aDataInfo{};
        if (!player || !buffer || !read || !capi::TakeDataInfo(info, aDataInfo))
            return CACHEFILE_ERR_INVALID_ARG;
        if (player->m_bContainer && !player->m_bAsync)
            return player->Read(info, offset, length, {nullptr, buffer, read});
        CmUint32 dwRead = length;
        const CmInt32 lResult = player->m_pHandler->SyncReadData(
            aDataInfo, static_cast<unsigned char*>(buffer), offset, dwRead);
        if (lResult == CACHE_OK) *read = static_cast<std::uint32_t>(dwRead);
        return lResult;
    });
}

int32_t cachefile_player_write(cachefile_player* player, const cachefile_data_info* info,
                               const void* data, uint32_t length, uint32_t offset) {
    return capi::Guarded([&]() -> std::int32_t {
        tagDataInfo aDataInfo{};
        const unsigned char* const lpData = capi::BytesOf(data, length);
        if (!player || !lpData || !capi::TakeDataInfo(info, aDataInfo))
            return CACHEFILE_ERR_INVALID_ARG;
        return player->m_pHandler->WriteData(aDataInfo, lpData, length, offset);
    });
}

int32_t cachefile_player_close_files(cachefile_player* player) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!player) return CACHEFILE_ERR_INVALID_ARG;
        return player->m_pHandler->CloseAllRecordFiles();
    });
}

uint32_t cachefile_player_cb_time_stamp(const cachefile_player* player) {
    return player ? player->m_pHandler->GetCBTimeStamp() : 0;
}

uint32_t cachefile_player_file_version(const cachefile_player* player) {
    return player ? player->m_pHandler->GetFileVersion() : 0;
}

int32_t cachefile_player_status(const cachefile_player* player) {
    return player ? player->m_pHandler->GetFileStatus(CCacheFileManager::Link_Local) : 0;
}
