#include "tests/faults/Memory.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

constexpr int c_nNever = -1;

std::atomic<std::size_t> s_nUsed{0};
std::atomic<std::size_t> s_nPeak{0};
std::atomic<std::size_t> s_nPieces{0};

// Set only while no worker is running.
std::atomic<int> s_nNth{c_nNever};
std::atomic<bool> s_bForEver{false};

std::atomic<int> s_nRequests{0};
std::atomic<int> s_nFailures{0};
thread_local bool t_bMayFail = true;
thread_local std::size_t t_nRequests = 0;

bool Fails() noexcept {
    if (s_nNth == c_nNever || !t_bMayFail) return false;
    const int nRequest = ++s_nRequests;
    if (nRequest != s_nNth && !(s_bForEver && nRequest > s_nNth)) return false;
    ++s_nFailures;
    return true;
}

void* Take(std::size_t nSize) noexcept {
    ++t_nRequests;
    void* const p = Fails() ? nullptr : std::malloc(nSize ? nSize : 1);
    if (!p) return nullptr;
    ++s_nPieces;
    const std::size_t nUsed = s_nUsed += ::malloc_usable_size(p);
    std::size_t nPeak = s_nPeak;
    while (nPeak < nUsed && !s_nPeak.compare_exchange_weak(nPeak, nUsed)) {
    }
    return p;
}

void* TakeOrThrow(std::size_t nSize) {
    if (void* const p = Take(nSize)) return p;
    throw std::bad_alloc();
}

void Give(void* p) noexcept {
    if (!p) return;
    --s_nPieces;
    s_nUsed -= ::malloc_usable_size(p);
    std::free(p);
}

}  // namespace

namespace Memory {

std::size_t StartPeak() { return s_nPeak = s_nUsed.load(); }
std::size_t InUse() { return s_nPieces; }
std::size_t Requests() { return t_nRequests; }

void Arm(int nNth, bool bForEver) {
    s_bForEver = bForEver;
    s_nRequests = s_nFailures = 0;
    s_nNth = nNth;
}

int Disarm() {
    s_nNth = c_nNever;
    return s_nFailures;
}

Scope::Scope(bool bMayFail) : m_bBefore(std::exchange(t_bMayFail, bMayFail)) {}
Scope::~Scope() { t_bMayFail = m_bBefore; }

}  // namespace Memory

void* operator new(std::size_t nSize) { return TakeOrThrow(nSize); }
void* operator new[](std::size_t nSize) { return TakeOrThrow(nSize); }
void* operator new(std::size_t nSize, const std::nothrow_t&) noexcept { return Take(nSize); }
void* operator new[](std::size_t nSize, const std::nothrow_t&) noexcept { return Take(nSize); }
void operator delete(void* p) noexcept { Give(p); }
void operator delete[](void* p) noexcept { Give(p); }
void operator delete(void* p, std::size_t) noexcept { Give(p); }
void operator delete[](void* p, std::size_t) noexcept { Give(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Give(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Give(p); }
