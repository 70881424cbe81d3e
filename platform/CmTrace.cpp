#include "platform/CmTrace.h"

#include <atomic>
#include <new>
#include <utility>

#include "platform/CmCallSlot.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmResult.h"
#include "platform/CmSystem.h"

namespace {

/// A sink with its level, so that both change in one step.
struct tagLeveledSink {
    CCmT120Trace::Sink aSink;
    CmInt32 lLevel;
    explicit operator bool() const { return bool{aSink}; }
    void operator()(CmInt32 lLineLevel, const char* lpText) const {
        if (lLineLevel <= lLevel) aSink(lLineLevel, lpText);
    }
};

using SinkSlot = CCmCallSlot<tagLeveledSink>;

SinkSlot& GetSlot() { return CmNeverDestroyed<SinkSlot>(); }

/// Makes a fork wait until no thread is inside the short locked parts of the slot, whose lock no
/// thread holds together with another one. Without memory for the handlers forks are as safe as the
/// system makes them.
void WatchForks() {
    static const bool s_bWatched = CmRegisterForkHandlers([] { GetSlot().BeforeFork(); },
                                                          [] { GetSlot().AfterForkInParent(); },
                                                          [] { GetSlot().AfterForkInChild(); });
    (void)s_bWatched;
}

/// The level of the sink, for the quick check before a line is formatted. Relaxed: a line that is
/// traced while the sink changes may reach either sink; the slot itself is locked.
std::atomic<CmInt32> s_lLevel{CCmT120Trace::Level_None};

}  // namespace

CCmT120Trace* CCmT120Trace::instance() { return &CmNeverDestroyed<CCmT120Trace>(); }

CmInt32 CCmT120Trace::SetSink(Sink aSink, CmInt32 lLevel) {
    WatchForks();
    const CmInt32 lNewLevel = aSink ? lLevel : CmInt32{Level_None};
    try {
        GetSlot().Set({std::move(aSink), lNewLevel},
                      [&] { s_lLevel.store(lNewLevel, std::memory_order_relaxed); });
    } catch (const std::bad_alloc&) {
        return CACHE_ERR_OUT_OF_MEMORY;
    }
    return CACHE_OK;
}

bool CCmT120Trace::IsEnabled(CmInt32 lLevel) const noexcept {
    return lLevel <= s_lLevel.load(std::memory_order_relaxed);
}

void CCmT120Trace::trace_string(CmInt32 lLevel, const char* lpText) noexcept {
    if (IsEnabled(lLevel)) GetSlot().Call(lLevel, lpText);
}
