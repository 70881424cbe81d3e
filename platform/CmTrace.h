#pragma once

#include "platform/CmCallable.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// The library's trace: lines of text, each with a level. A host installs a sink to receive them.
///
/// One object for the process, never destroyed. Any thread may trace at any time; nothing the
/// library does depends on a line being written. With no sink installed nothing is formatted.
class CACHEFILE_API CCmT120Trace {
 public:
    /// Receives one line without a line break. The text is valid during the call only. The sink
    /// runs on the thread that traces (the host's or the worker), on both at once if both trace,
    /// with no lock of the library held. It must not throw, wait for the caller thread or call back
    /// into the library, but it may install another sink.
    using Sink = CCmCallable<void(CmInt32 lLevel, const char* lpText)>;

    enum : CmInt32 {
        Level_Error = 0,  ///< failures, failed checks
        Level_Info = 20,  ///< creation of handlers and files, opening of downloaded recordings
        Level_None = -1,  ///< no line has this level
    };

    static CCmT120Trace* instance();

    /// Installs aSink for the lines up to lLevel; an empty one turns tracing off. Returns when no
    /// call of an earlier sink is running on another thread. On CACHE_ERR_OUT_OF_MEMORY the earlier
    /// sink stays. In a forked child it does not wait for threads of the parent.
    CmInt32 SetSink(Sink aSink, CmInt32 lLevel = Level_Info);

    /// Whether a line of this level would reach a sink.
    bool IsEnabled(CmInt32 lLevel) const noexcept;

    /// Passes one line to the sink if its level is enabled.
    void trace_string(CmInt32 lLevel, const char* lpText) noexcept;

    class CACHEFILE_LOCAL Text_Formator;  // builds lines inside the library

    CCmT120Trace(const CCmT120Trace&) = delete;
    CCmT120Trace& operator=(const CCmT120Trace&) = delete;

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CCmT120Trace() = default;
};
