#include <algorithm>
#include <memory>

#include "capi/Callbacks.h"
#include "capi/HostText.h"
#include "capi/Records.h"
#include "writer/WriteFileHandler.h"

/// A write handler with the host's callbacks. The host creates and frees it and calls it on one
/// thread. It is not used after a callback, because the callback may have freed it.
struct cachefile_writer final : IFileOpSink, IFileSafetySink {
    void OnFileOpStatus(CCacheFileManager::LinkType /*aLinkType*/,
                        CCacheFileManager::OpType aOpType, CmInt32 aResult) override {
        m_callbacks.Status(aOpType, aResult);
    }

    void OnDataReady(unsigned char* lpData, CmUint32 /*dwLength*/,
                     const tagDataInfo& /*aDataInfo*/) override {
        delete[] lpData;  // a write handler reads nothing
    }

    void OnFileSynced(CmUint32 dwHandle, CmInt32 lResult) noexcept override {
        if (m_onSynced)
            m_onSynced(m_pSafetyUser, dwHandle, lResult);
        else if (lResult != CACHE_OK)  // m_onSynced was removed after the sync was queued
            m_callbacks.Status(CCacheFileManager::Op_Write, lResult);
    }

    void OnLowSpace(std::uint64_t qwFreeBytes) noexcept override {
        if (m_onLowSpace) m_onLowSpace(m_pSafetyUser, qwFreeBytes);
    }

    capi::CCallbacks m_callbacks;
    CWriteFileHandler* m_pHandler = nullptr;
    cachefile_on_synced m_onSynced = nullptr;
    cachefile_on_low_space m_onLowSpace = nullptr;
    void* m_pSafetyUser = nullptr;
};

int32_t cachefile_writer_create(uint32_t record_id, uint32_t flags,
                                const cachefile_callbacks* callbacks, cachefile_writer** writer) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!writer || (flags & ~std::uint32_t{CACHEFILE_ASYNC})) return CACHEFILE_ERR_INVALID_ARG;
        auto pWriter = std::make_unique<cachefile_writer>();
        if (!pWriter->m_callbacks.Take(callbacks)) return CACHEFILE_ERR_INVALID_ARG;
        CWriteFileHandler* const pHandler = CCacheFileManager::Instance().CreateWriteFileHandler(
            record_id, (flags & CACHEFILE_ASYNC) != 0);
        if (!pHandler) return CACHEFILE_ERR_OUT_OF_MEMORY;
        const CmInt32 lResult = pHandler->Initialize(pWriter.get());
        if (lResult != CACHE_OK) {
            pHandler->Destroy();
            return lResult;
        }
        pWriter->m_pHandler = pHandler;
        *writer = pWriter.release();
        return CACHEFILE_OK;
    });
}

void cachefile_writer_destroy(cachefile_writer* writer) {
    if (!writer) return;
    writer->m_pHandler->Destroy();
    delete writer;
}

int32_t cachefile_writer_set_dir(cachefile_writer* writer, const char* directory) {
    return capi::Guarded([&] {
        CCmString strDirectory;
        if (!writer || !capi::TakeDirectory(directory, strDirectory))
            return CACHEFILE_ERR_INVALID_ARG;
        writer->m_pHandler->SetHomeDir(strDirectory);
        return CACHEFILE_OK;
    });
}

int32_t cachefile_writer_open(cachefile_writer* writer, const char* name, uint32_t* file) {
    if (file) *file = 0;
    return capi::Guarded([&]() -> std::int32_t {
        CCmString strName;
        if (!writer || !file || !capi::TakeName(name, strName)) return CACHEFILE_ERR_INVALID_ARG;
        CmUint32 dwHandle = 0;
        const CmInt32 lResult = writer->m_pHandler->OpenWritingFile(strName, dwHandle);
        *file = dwHandle;
        return lResult;
    });
}

int32_t cachefile_writer_write(cachefile_writer* writer, uint32_t file, const void* data,
                               uint32_t length, uint32_t offset) {
    return capi::Guarded([&]() -> std::int32_t {
        const unsigned char* const lpData = capi::BytesOf(data, length);
        if (!writer || !lpData) return CACHEFILE_ERR_INVALID_ARG;
        return writer->m_pHandler->WriteData(file, lpData, length, offset);
    });
}

int32_t cachefile_writer_append(cachefile_writer* writer, uint32_t file, const void* data,
                                uint32_t length) {
    return cachefile_writer_write(writer, file, data, length, CACHEFILE_END);
}

int32_t cachefile_writer_set_pending_limit(cachefile_writer* writer, uint64_t bytes) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!writer) return CACHEFILE_ERR_INVALID_ARG;
        return writer->m_pHandler->SetPendingLimit(bytes);
    });
}

int32_t cachefile_writer_flush(cachefile_writer* writer, uint32_t file) {
    return capi::Guarded([&] {
        if (!writer) return CACHEFILE_ERR_INVALID_ARG;
        writer->m_pHandler->FlushData(file);
        return CACHEFILE_OK;
    });
}

int32_t cachefile_writer_close(cachefile_writer* writer, uint32_t file) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!writer) return CACHEFILE_ERR_INVALID_ARG;
        return writer->m_pHandler->CloseFile(file);
    });
}

int32_t cachefile_writer_sync(cachefile_writer* writer, uint32_t file) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!writer) return CACHEFILE_ERR_INVALID_ARG;
        writer->m_pHandler->SetSafetySink(writer->m_onSynced ? writer : nullptr);
        const CmInt32 lResult = writer->m_pHandler->SyncFile(file);
        writer->m_pHandler->SetSafetySink(writer);
        return lResult;
    });
}

int32_t cachefile_writer_losses(cachefile_writer* writer, uint32_t file, cachefile_losses* losses,
                                cachefile_hole* holes, size_t max_holes) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!writer || (!holes && max_holes > 0)) return CACHEFILE_ERR_INVALID_ARG;
        tagFileLosses aLosses;
        const CmInt32 lResult = writer->m_pHandler->GetFileLosses(file, aLosses);
        if (lResult != CACHE_OK) return lResult;
        cachefile_losses aFilled = CACHEFILE_LOSSES_INIT;
        aFilled.lost = aLosses.qwLost;
        aFilled.pending = aLosses.qwPending;
        aFilled.unsynced = aLosses.qwUnsynced;
        aFilled.holes = aLosses.vecHoles.size();
        aFilled.all_holes = aLosses.bAllHoles;
        if (!capi::FillStruct(aFilled, losses)) return CACHEFILE_ERR_INVALID_ARG;
        const std::size_t nHoles = std::min(max_holes, aLosses.vecHoles.size());
        std::transform(
            aLosses.vecHoles.begin(),
            aLosses.vecHoles.begin() + static_cast<std::ptrdiff_t>(nHoles), holes,
            [](const tagFileHole& aHole) {
                return cachefile_hole{aHole.qwOffset, aHole.qwLength, aHole.bInPlace ? 1 : 0, 0};
            });
        return CACHEFILE_OK;
    });
}

int32_t cachefile_writer_set_safety(cachefile_writer* writer, cachefile_on_synced on_synced,
                                    cachefile_on_low_space on_low_space, uint64_t low_space_mark,
                                    void* user) {
    return capi::Guarded([&]() -> std::int32_t {
        if (!writer) return CACHEFILE_ERR_INVALID_ARG;
        const CmInt32 lResult = writer->m_pHandler->SetLowSpaceMark(low_space_mark);
        if (lResult != CACHE_OK) return lResult;
        writer->m_onSynced = on_synced;
        writer->m_onLowSpace = on_low_space;
        writer->m_pSafetyUser = user;
        writer->m_pHandler->SetSafetySink(writer);
        return CACHEFILE_OK;
    });
}

int32_t cachefile_writer_status(const cachefile_writer* writer) {
    return writer ? writer->m_pHandler->GetFileStatus(CCacheFileManager::Link_Local) : 0;
}
