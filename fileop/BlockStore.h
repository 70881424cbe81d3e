#pragma once

#include <array>
#include <cstddef>

#include "platform/CmImmortal.h"
#include "platform/CmMutex.h"
#include "platform/CmTypes.h"

/// Keeps the memory of blocks that have been written for the blocks that come next. Memory fresh
/// from the system costs the thread that first touches it more than filling it.
///
/// One object for the process, never destroyed; it keeps 2 MiB at most, and nothing when the
/// library has been shut down or, where there are exit handlers, unloaded. Any thread: the caller
/// takes what the worker gives back.
class CBlockStore {
 public:
    static CBlockStore& Instance() { return CmImmortal<CBlockStore>(); }

    /// An empty string with room for nCapacity bytes. Throws std::bad_alloc and std::length_error.
    CCmString Take(std::size_t nCapacity);

    /// Takes strBlock's memory over if it is worth keeping and there is room for it.
    void Give(CCmString&& strBlock) noexcept;

    /// Gives all memory back to the system.
    void Clear() noexcept;

 private:
    template <class T>
    friend T& CmImmortal();
    CBlockStore();

    static constexpr std::size_t c_nLeast = 32768;  // what is smaller is made as quickly as found
    static constexpr std::size_t c_nMost = 2U << 20;

    CCmMutexThread m_mutex;
    std::array<CCmString, c_nMost / c_nLeast> m_aFree CM_GUARDED_BY(m_mutex);
    std::size_t m_nFree CM_GUARDED_BY(m_mutex) = 0;  // how many of them there are
    std::size_t m_nKept CM_GUARDED_BY(m_mutex) = 0;  // bytes that they have room for
};
