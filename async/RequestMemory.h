#pragma once

#include <cstddef>

/// Keeps the memory of finished write requests and reuses it for later ones. A thread allocates a
/// request and another one frees it, which is the slowest case for many allocators.
///
/// All members are static and may be called on any thread. Each slot is taken or filled with one
/// atomic operation, so no thread waits. At most 32 requests are kept, and none after a shutdown
/// or, where there are exit handlers, after unloading.
class CRequestMemory {
 public:
    /// Returns memory for nSize bytes, which is the same in all calls, or null.
    static void* Take(std::size_t nSize) noexcept;

    static void Give(void* lpMemory) noexcept;

    /// Frees all kept memory.
    static void Clear() noexcept;
};
