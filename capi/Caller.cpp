#include <utility>

#include "capi/Call.h"
#include "platform/CmCallerThread.h"

namespace {

/// Runs the pending callbacks and returns their number in pdwCount, which may be null.
std::int32_t Run(CmUint32 dwMilliseconds, std::uint32_t* pdwCount) {
    CmUint32 dwCount = 0;
    const CmInt32 lResult = CCmCallerThread::WaitAndRun(dwMilliseconds, &dwCount);
    if (pdwCount) *pdwCount = static_cast<std::uint32_t>(dwCount);
    return static_cast<std::int32_t>(lResult);
}

}  // namespace

int32_t cachefile_caller_attach(void) {
    return capi::Guarded([] { return CCmCallerThread::Attach(); });
}

int32_t cachefile_caller_detach(void) {
    return capi::Guarded([] { return CCmCallerThread::Detach(); });
}

int32_t cachefile_caller_is_current(void) {
    return capi::Guarded([] { return CCmCallerThread::IsCurrent() ? 1 : 0; });
}

int32_t cachefile_caller_run_pending(uint32_t* count) {
    return capi::Guarded([&] { return Run(0, count); });
}

int32_t cachefile_caller_wait_and_run(uint32_t milliseconds, uint32_t* count) {
    return capi::Guarded([&] { return Run(milliseconds, count); });
}

int32_t cachefile_caller_set_wake_up(cachefile_wake_up wake_up, void* user) {
    return capi::Guarded([&] {
        CCmCallerThread::WakeUp aWakeUp;
        if (wake_up) aWakeUp = [wake_up, user]() noexcept { wake_up(user); };
        return CCmCallerThread::SetWakeUp(std::move(aWakeUp));
    });
}

int32_t cachefile_caller_get_descriptor(int* descriptor) {
    return capi::Guarded([&] {
        return descriptor ? CCmCallerThread::GetWakeDescriptor(*descriptor)
                          : CmInt32{CACHEFILE_ERR_INVALID_ARG};
    });
}
