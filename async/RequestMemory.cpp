#include "async/RequestMemory.h"

#include <atomic>
#include <new>

namespace {

/// A slot is empty or owns the memory of one request. The thread that fills a slot has finished
/// with the memory before, and the thread that takes it uses it afterwards: release and acquire. A
/// slot that seems empty or full is only passed over, so that test is relaxed.
std::atomic<void*> s_aSlots[32]{};

}  // namespace

void* CRequestMemory::Take(std::size_t nSize) noexcept {
    for (std::atomic<void*>& aSlot : s_aSlots) {
        if (!aSlot.load(std::memory_order_relaxed)) continue;
        if (void* const lpMemory = aSlot.exchange(nullptr, std::memory_order_acquire))
            return lpMemory;
    }
    return ::operator new(nSize, std::nothrow);
}

void CRequestMemory::Give(void* lpMemory) noexcept {
    for (std::atomic<void*>& aSlot : s_aSlots) {
        void* lpEmpty = nullptr;
        if (!aSlot.load(std::memory_order_relaxed) &&
            aSlot.compare_exchange_strong(lpEmpty, lpMemory, std::memory_order_release,
                                          std::memory_order_relaxed))
            return;
    }
    ::operator delete(lpMemory);
}

void CRequestMemory::Clear() noexcept {
    for (std::atomic<void*>& aSlot : s_aSlots)
        ::operator delete(aSlot.exchange(nullptr, std::memory_order_acquire));
}
