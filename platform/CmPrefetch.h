#pragma once

/// Asks the processor to load lpAddress into its caches, if the compiler has a function for this.
inline void CmPrefetch([[maybe_unused]] const void* lpAddress) {
#if defined(__GNUC__)
    __builtin_prefetch(lpAddress);
#endif
}
