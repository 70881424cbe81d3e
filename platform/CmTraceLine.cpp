#include "platform/CmTraceLine.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

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
