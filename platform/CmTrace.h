#pragma once

#include "platform/CmCallable.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// The library's trace: lines of text, each with a level. A host installs a sink to receive them.
///
/// One object for the process, never destroyed. Any thread may trace at any time. The library's
/// results do not depend on the sink. Without a sink no line is formatted.
class CACHEFILE_API CCmT120Trace {
 public:
    /// Receives one line without a line break. The text is valid only during the call. The sink
    /// runs on the thread that traces (the host's or the worker), and on several threads at the
    /// same time if they trace at the same time. No lock of the library is held. The sink must not
    /// throw, wait for the caller thread or call the library, except that it may install another
    /// sink.
    using Sink = CCmCallable<void(CmInt32 lLevel, const char* lpText)>;

    enum : CmInt32 {
        Level_Error = 0,  ///< failures, failed checks
        Level_Info = 20,  ///< creation of handlers and files, opening of downloaded recordings
        Level_None = -1,  ///< no line has this level
    };

    static CCmT120Trace* instance();

    /// Installs aSink for lines up to lLevel. An empty sink turns tracing off. Before it returns,
    /// it waits for calls of an earlier sink on other threads to end; in a forked child, not for
    /// threads of the parent. Returns 0, or CACHE_ERR_OUT_OF_MEMORY with the earlier sink kept.
    CmInt32 SetSink(Sink aSink, CmInt32 lLevel = Level_Info);

    /// Returns whether a sink receives lines of this level.
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
