#include "tests/faults/Memory.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> s_nUsed{0};
std::atomic<std::size_t> s_nPeak{0};

void* Take(std::size_t nSize) noexcept {
    void* const p = std::malloc(nSize ? nSize : 1);
    if (!p) return nullptr;
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
    s_nUsed -= ::malloc_usable_size(p);
    std::free(p);
}

}  // namespace

namespace Memory {

std::size_t StartPeak() { return s_nPeak = s_nUsed.load(); }
std::size_t Peak() { return s_nPeak; }

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
