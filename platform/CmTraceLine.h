#pragma once

#include <cstddef>
#include <initializer_list>

#include "platform/CmTrace.h"

/// Builds a line in a caller's buffer from parts that are streamed in order. Text that does not fit
/// is cut.
///
/// It is a local variable of the thread that traces. It allocates no memory and cannot fail.
class CACHEFILE_LOCAL CCmT120Trace::Text_Formator {
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

namespace cachefile_internal {

/// Traces the parts as one line of this level. If no sink receives lines of this level, it formats
/// nothing. The line is built on the stack, so tracing allocates no memory.
template <class... Parts>
void Trace(CmInt32 lLevel, const Parts&... aParts) noexcept {
    if (!CCmT120Trace::instance()->IsEnabled(lLevel)) return;
    char aBuffer[1024];
    CCmT120Trace::Text_Formator aLine(aBuffer, sizeof aBuffer);
    (void)(aLine << ... << aParts);
    CCmT120Trace::instance()->trace_string(lLevel, aLine);
}

/// Traces a failure: TraceError("CClass::Operation->Failure error=", nErrno, " this=", this).
template <class... Parts>
void TraceError(const Parts&... aParts) noexcept {
    Trace(CCmT120Trace::Level_Error, aParts...);
}

/// Traces an event in the life of an object, such as its creation.
template <class... Parts>
void TraceInfo(const Parts&... aParts) noexcept {
    Trace(CCmT120Trace::Level_Info, aParts...);
}

}  // namespace cachefile_internal

using cachefile_internal::TraceError;
using cachefile_internal::TraceInfo;

/// Traces that the check `text` has failed, and continues. A macro, because the trace line has the
/// file and line of its use.
#define CM_ASSERTION(text) TraceError(__FILE__, ":", __LINE__, " Assert failed: ", text)

/// Continues if the condition holds; otherwise traces the check's text and returns the code.
#define CM_CHECK(condition, text, code) \
    do {                                \
        if (!(condition)) {             \
            CM_ASSERTION(text);         \
            return code;                \
        }                               \
    } while (0)
