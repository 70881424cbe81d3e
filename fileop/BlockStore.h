#pragma once

#include <array>
#include <cstddef>

#include "platform/CmMutex.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmTypes.h"

/// Keeps the memory of written blocks and reuses it for later blocks. In new memory from the
/// system, the page faults of the first access take longer than the copy of the bytes.
///
/// One object for the process, never destroyed. Any thread may call it: the caller thread takes
/// what the worker returns, and a mutex guards the blocks. It keeps at most 2 MiB, and nothing
/// after a shutdown or, where there are exit handlers, after unloading. Only Take can fail.
class CBlockStore {
 public:
    static CBlockStore& Instance() { return CmNeverDestroyed<CBlockStore>(); }

    /// Returns an empty string that holds nCapacity bytes without another request for memory. A
    /// kept block is used only if its capacity is at most nMaxCapacity, because the unused part of
    /// a block that is much too large would not be counted as pending. Throws std::bad_alloc and
    /// std::length_error.
    CCmString Take(std::size_t nCapacity, std::size_t nMaxCapacity);

    /// Takes over the memory of strBlock if blocks of its size are worth keeping. The blocks that
    /// have been kept longest are freed if necessary.
    void Give(CCmString&& strBlock) noexcept;

    /// Frees all kept memory.
    void Clear() noexcept;

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CBlockStore();

    /// Smaller blocks are not kept: allocating one is as fast as finding a kept one.
    static constexpr std::size_t c_nMinBlock = 32768;

    /// Twice as much as may be pending before writes become urgent, so that in a steady recording
    /// each block finds the memory of an earlier one. An idle process keeps no more than that.
    static constexpr std::size_t c_nMaxKept = 2U << 20;

    CCmString Find(std::size_t nCapacity, std::size_t nMaxCapacity);

    CCmMutexThread m_mutex;
    // The kept blocks, the oldest at the front.
    std::array<CCmString, c_nMaxKept / c_nMinBlock> m_aFree CM_GUARDED_BY(m_mutex);
    std::size_t m_nFree CM_GUARDED_BY(m_mutex) = 0;  // how many of them there are
    std::size_t m_nKept CM_GUARDED_BY(m_mutex) = 0;  // the sum of their capacities
};
