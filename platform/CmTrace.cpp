#include "platform/CmTrace.h"

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "platform/CmCallSlot.h"
#include "platform/CmFork.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

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

/// The level of the sink, for the quick check before a line is formatted. Relaxed: a line that is
/// traced while the sink changes may reach either sink; the slot itself is locked.
std::atomic<CmInt32> s_lLevel{CCmT120Trace::Level_None};

}  // namespace

CCmT120Trace* CCmT120Trace::instance() { return &CmNeverDestroyed<CCmT120Trace>(); }

CmInt32 CCmT120Trace::SetSink(Sink aSink, CmInt32 lLevel) {
    CmWatchForks();
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

void TraceBeforeFork() { GetSlot().BeforeFork(); }

void TraceAfterForkInParent() { GetSlot().AfterForkInParent(); }

void TraceAfterForkInChild() { GetSlot().AfterForkInChild(); }

using Formator = CCmT120Trace::Text_Formator;

Formator::Text_Formator(char* lpBuffer, std::size_t dwSize) noexcept
    : m_lpBuffer(lpBuffer), m_dwSize(dwSize) {
    m_lpBuffer[0] = '\0';
}

Formator::operator const char*() const noexcept { return m_lpBuffer; }

void Formator::Append(const char* lpText, std::size_t dwLength) noexcept {
    dwLength = std::min(dwLength, m_dwSize - 1 - m_dwUsed);
    std::memcpy(m_lpBuffer + m_dwUsed, lpText, dwLength);
    m_dwUsed += dwLength;
    m_lpBuffer[m_dwUsed] = '\0';
}

Formator& Formator::operator<<(const char* lpText) noexcept {
    Append(lpText, std::strlen(lpText));
    return *this;
}

Formator& Formator::operator<<(const CCmString& strText) noexcept {
    Append(strText.data(), strText.size());
    return *this;
}

Formator& Formator::operator<<(int nValue) noexcept { return *this << static_cast<long>(nValue); }

Formator& Formator::operator<<(unsigned int nValue) noexcept {
    return *this << static_cast<unsigned long>(nValue);
}

Formator& Formator::operator<<(unsigned short wValue) noexcept {
    return *this << static_cast<unsigned long>(wValue);
}

Formator& Formator::operator<<(unsigned char byValue) noexcept {
    return *this << static_cast<unsigned long>(byValue);
}

Formator& Formator::operator<<(long nValue) noexcept {
    return *this << static_cast<long long>(nValue);
}

Formator& Formator::operator<<(long long nValue) noexcept {
    char aDigits[32];
    (void)std::snprintf(aDigits, sizeof aDigits, "%lld", nValue);
    return *this << aDigits;
}

Formator& Formator::operator<<(unsigned long nValue) noexcept {
    return *this << static_cast<unsigned long long>(nValue);
}

Formator& Formator::operator<<(unsigned long long qwValue) noexcept {
    char aDigits[32];
    (void)std::snprintf(aDigits, sizeof aDigits, "%llu", qwValue);
    return *this << aDigits;
}

Formator& Formator::operator<<(const void* pValue) noexcept {
    char aDigits[32];
    (void)std::snprintf(aDigits, sizeof aDigits, "0x%" PRIxPTR,
                        reinterpret_cast<std::uintptr_t>(pValue));
    return *this << aDigits;
}
