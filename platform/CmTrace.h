#pragma once

#include <atomic>
#include <cstddef>
#include <functional>

#include "platform/CmCallSlot.h"
#include "platform/CmExport.h"
#include "platform/CmImmortal.h"
#include "platform/CmTypes.h"

/// The library's trace: lines of text at a level. The host sees them by installing a sink.
///
/// One object for the process, never destroyed. Any thread may trace at any time; nothing the
/// library does depends on a line being written. With no sink installed nothing is formatted.
class CACHEFILE_API CCmT120Trace {
 public:
    /// Receives one line without a line break. The text is valid during the call only. It runs on
    /// the thread that traces (the host's or the worker), on both at once if both trace, with no
    /// lock of the library held. It must not throw, wait for the caller thread or call back into
    /// the library, but it may install another sink.
    using Sink = std::function<void(CmInt32 lLevel, const char* lpText)>;

    enum : CmInt32 {
        Level_Error = 0,  ///< failures, failed checks
        Level_Info = 20,  ///< creation of handlers and files, opening of downloaded recordings
        Level_None = -1,  ///< no line has this level
    };

    static CCmT120Trace* instance();

    /// Installs aSink for the lines up to lLevel; an empty one turns tracing off. Returns when no
    /// call of an earlier sink is running on another thread. CACHE_ERR_OUT_OF_MEMORY: the earlier
    /// one stays. In a forked child it waits for no thread of the parent.
    CmInt32 SetSink(Sink aSink, CmInt32 lLevel = Level_Info);

    /// Whether a line of this level would reach a sink.
    bool IsEnabled(CmInt32 lLevel) const noexcept;

    /// Hands one line to the sink if its level is enabled.
    void trace_string(CmInt32 lLevel, const char* lpText) noexcept;

    /// Builds a line in a buffer of the caller's by streaming its parts; what doesn't fit is cut.
    class CACHEFILE_API Text_Formator {
     public:
        /// lpBuffer (dwSize bytes, at least 1) must outlive the formator.
        Text_Formator(char* lpBuffer, std::size_t dwSize) noexcept;

        Text_Formator& operator<<(const char* lpText) noexcept;
        Text_Formator& operator<<(const CCmString& strText) noexcept;
        Text_Formator& operator<<(int nValue) noexcept;
        Text_Formator& operator<<(unsigned int nValue) noexcept;
        Text_Formator& operator<<(long nValue) noexcept;
        Text_Formator& operator<<(unsigned long nValue) noexcept;
        Text_Formator& operator<<(long long nValue) noexcept;
        Text_Formator& operator<<(unsigned long long qwValue) noexcept;
        Text_Formator& operator<<(unsigned short wValue) noexcept;
        Text_Formator& operator<<(unsigned char byValue) noexcept;
        Text_Formator& operator<<(const void* pValue) noexcept;

        operator const char*() const noexcept;

     private:
        void Append(const char* lpText, std::size_t dwLength) noexcept;

        char* const m_lpBuffer;
        const std::size_t m_dwSize;
        std::size_t m_dwUsed = 0;
    };

    CCmT120Trace(const CCmT120Trace&) = delete;
    CCmT120Trace& operator=(const CCmT120Trace&) = delete;

 private:
    friend CCmT120Trace& CmImmortal<CCmT120Trace>();
    friend struct CCmForkHandlers;
    CCmT120Trace() = default;

    struct tagLeveledSink {
        Sink aSink;
        CmInt32 lLevel;
        explicit operator bool() const { return bool{aSink}; }
        void operator()(CmInt32 lLineLevel, const char* lpText) const {
            if (lLineLevel <= lLevel) aSink(lLineLevel, lpText);
        }
    };

    std::atomic<CmInt32> m_lLevel{Level_None};  // the sink's, for a quick look
    CCmCallSlot<tagLeveledSink> m_sink;
};

/// Traces the parts (streamed with <<) as one line; formats on the stack, and only if a sink wants
/// lines of this level.
#define CM_TRACE(level, parts)                                                   \
    do {                                                                         \
        if (CCmT120Trace::instance()->IsEnabled(level)) {                        \
            char cmTraceBuffer[1024];                                            \
            CCmT120Trace::Text_Formator cmTrace(cmTraceBuffer, 1024);            \
            cmTrace << parts; /* NOLINT: a stream of parts has no parentheses */ \
            CCmT120Trace::instance()->trace_string(level, cmTrace);              \
        }                                                                        \
    } while (0)

#define CM_TRACE_ERROR(parts) CM_TRACE(CCmT120Trace::Level_Error, parts)
#define CM_TRACE_INFO(parts) CM_TRACE(CCmT120Trace::Level_Info, parts)

/// Traces that the check `text` has failed here. Nothing stops: the caller goes on along its
/// failure path.
#define CM_ASSERTION(text) \
    CM_TRACE_ERROR(__FILE__ << ":" << __LINE__ << " Assert failed: " << (text))

/// Goes on when the condition holds; otherwise traces the check's text and returns the code.
#define CM_CHECK(condition, text, code) \
    do {                                \
        if (!(condition)) {             \
            CM_ASSERTION(text);         \
            return code;                \
        }                               \
    } while (0)
