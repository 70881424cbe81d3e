#pragma once

/// Tells the processor that lpAddress will soon be looked at, where the compiler can say so.
inline void CmPrefetch([[maybe_unused]] const void* lpAddress) {
#if defined(__GNUC__)
    __builtin_prefetch(lpAddress);
#endif
}
