#include <iterator>
#include <utility>

#include "async/Shutdown.h"
#include "capi/Call.h"
#include "capi/HostText.h"
#include "core/CacheFileManager.h"
#include "core/Version.h"
#include "platform/CmResult.h"
#include "platform/CmTrace.h"

/// The functions without a handle. The assertions check that the codes of both interfaces are
/// equal.

namespace {

#define CAPI_SAME_CODE(name)                                                        \
    static_assert(static_cast<std::int32_t>(CACHEFILE_##name) == int{CACHE_##name}, \
                  "one code for both interfaces")
CAPI_SAME_CODE(OK);
CAPI_SAME_CODE(ERR_NOT_FOUND);
CAPI_SAME_CODE(ERR_BAD_CONTAINER);
CAPI_SAME_CODE(ERR_DISK_FULL);
CAPI_SAME_CODE(ERR_ACCESS_DENIED);
CAPI_SAME_CODE(ERR_BAD_PATH);
CAPI_SAME_CODE(ERR_FAILED);
CAPI_SAME_CODE(ERR_NOT_OPEN);
CAPI_SAME_CODE(ERR_ALREADY_OPEN);
CAPI_SAME_CODE(ERR_INVALID_ARG);
CAPI_SAME_CODE(ERR_INVALID_STATE);
CAPI_SAME_CODE(ERR_OUT_OF_MEMORY);
CAPI_SAME_CODE(ERR_WRITE_DENIED);
CAPI_SAME_CODE(ERR_TRY_AGAIN);
#undef CAPI_SAME_CODE

#define CAPI_CODE(code, name, text) code,
constexpr std::int32_t c_aCodes[] = {CACHEFILE_RESULT_CODES(CAPI_CODE)};
static_assert(std::size(c_aCodes) == 14 + 2,
              "every code that reaches a host is in both interfaces; two do not reach hosts");
#undef CAPI_CODE

}  // namespace

const char* cachefile_result_name(int32_t result) { return CacheFileResultName(result); }

const char* cachefile_result_text(int32_t result) { return CacheFileResultText(result); }

const char* cachefile_version(void) { return CacheFileVersion(); }

uint32_t cachefile_version_number(void) { return CacheFileVersionNumber(); }

int32_t cachefile_set_home_dir(const char* directory) {
    return capi::Guarded([&] {
        CCmString strDirectory;
        if (!capi::TakeDirectory(directory, strDirectory)) return CACHEFILE_ERR_INVALID_ARG;
        CCacheFileManager::Instance().SetTempHomeDir(strDirectory);
        return CACHEFILE_OK;
    });
}

uint64_t cachefile_lost_bytes(void) { return CCacheFileManager::GetLostBytes(); }

uint64_t cachefile_pending_bytes(void) { return CCacheFileManager::GetPendingBytes(); }

void cachefile_set_pending_limit(uint64_t bytes) { CCacheFileManager::SetPendingLimit(bytes); }

int32_t cachefile_set_sync_interval(uint32_t milliseconds) {
    return capi::Guarded([&] { return CCacheFileManager::SetSyncInterval(milliseconds); });
}

uint64_t cachefile_unsynced_bytes(void) { return CCacheFileManager::GetUnsyncedBytes(); }

void cachefile_set_room_wake_up(int32_t on) { CCacheFileManager::SetRoomWakeUp(on); }

void cachefile_set_gather_age(uint32_t milliseconds) {
    CCacheFileManager::SetGatherAge(milliseconds);
}

void cachefile_flush_aged(void) { CCacheFileManager::FlushAged(); }

int32_t cachefile_shutdown(void) {
    return capi::Guarded([] { return CacheFileShutdown(); });
}

void cachefile_free(void* memory) { delete[] static_cast<unsigned char*>(memory); }

int32_t cachefile_set_trace(cachefile_trace_sink sink, void* user, int32_t level) {
    return capi::Guarded([&] {
        CCmT120Trace::Sink aSink;
        if (sink)
            aSink = [sink, user](CmInt32 lLevel, const char* lpText) noexcept {
                sink(user, static_cast<std::int32_t>(lLevel), lpText);
            };
        return CCmT120Trace::instance()->SetSink(std::move(aSink), level);
    });
}
