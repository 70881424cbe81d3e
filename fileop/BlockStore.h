#pragma once

#include <array>
#include <cstddef>

#include "platform/CmMutex.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmTypes.h"

/// Keeps the memory of blocks that have been written for the blocks that come next. Memory fresh
/// from the system costs the thread that first touches it more than filling it.
///
/// One object for the process, never destroyed. Any thread may call it: the caller thread takes
/// what the worker gives back, and a mutex guards the blocks. It keeps at most 2 MiB, and nothing
/// after a shutdown or, where there are exit handlers, after unloading. Only Take can fail.
class CBlockStore {
 public:
    static CBlockStore& Instance() { return CmNeverDestroyed<CBlockStore>(); }

    /// Returns an empty string that holds nCapacity bytes without another request for memory. A
    /// kept block is used only if it is at most nMaxCapacity bytes large: bytes that wait in a
    /// block that is much too large use memory that nobody counts. Throws std::bad_alloc and
    /// std::length_error.
    CCmString Take(std::size_t nCapacity, std::size_t nMaxCapacity);

    /// Takes over the memory of strBlock if blocks of its size are worth keeping. The blocks that
    /// have been kept longest are freed to make room.
    void Give(CCmString&& strBlock) noexcept;

    /// Gives all memory back to the system.
    void Clear() noexcept;

 private:
    template <class T>
    friend T& CmNeverDestroyed();
    CBlockStore();

    /// Smaller memory is not kept: a new piece is made as fast as a kept one is found.
    static constexpr std::size_t c_nMinBlock = 32768;

    /// Twice as much as may be pending before writes become urgent, so that in a steady recording
    /// each block finds the memory of an earlier one. An idle process keeps no more than that.
    static constexpr std::size_t c_nMaxKept = 2U << 20;

    CCmString Find(std::size_t nCapacity, std::size_t nMaxCapacity);

    CCmMutexThread m_mutex;
    // The kept blocks, the one that was given first at the front.
    std::array<CCmString, c_nMaxKept / c_nMinBlock> m_aFree CM_GUARDED_BY(m_mutex);
    std::size_t m_nFree CM_GUARDED_BY(m_mutex) = 0;  // how many of them there are
    std::size_t m_nKept CM_GUARDED_BY(m_mutex) = 0;  // the sum of their capacities
};
