#pragma once

#include <cstddef>
#include <vector>

#include "platform/CmImmortal.h"
#include "platform/CmMutex.h"
#include "platform/CmTypes.h"

/// Keeps the memory of blocks that have been written for the blocks that come next. Memory fresh
/// from the system costs the thread that first touches it more than filling it.
///
/// One object for the process, never destroyed; it keeps 2 MiB at most. Any thread: the caller
/// takes what the worker gives back.
class CBlockStore {
 public:
    static CBlockStore& Instance() { return CmImmortal<CBlockStore>(); }

    /// An empty string with room for nCapacity bytes. Throws std::bad_alloc and std::length_error.
    CCmString Take(std::size_t nCapacity);

    /// Takes strBlock's memory over if it is worth keeping and there is room for it.
    void Give(CCmString&& strBlock) noexcept;

 private:
    template <class T>
    friend T& CmImmortal();
    CBlockStore();

    CCmMutexThread m_mutex;
    // Guarded by m_mutex.
    std::vector<CCmString> m_vecFree;
    std::size_t m_nKept = 0;  // bytes that they have room for
};
