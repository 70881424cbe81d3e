#pragma once

#if defined(__has_builtin)
#if __has_builtin(__builtin_thread_pointer)
#define CM_HAS_THREAD_POINTER
#endif
#endif

/// Returns an address that belongs to the calling thread and to no other living thread. A thread
/// that is started later may get the address of one that has ended. It is one instruction where the
/// compiler knows the thread's register; CmCurrentThreadNumber takes longer and is never repeated.
inline const void* CmThreadToken() {
#ifdef CM_HAS_THREAD_POINTER
    return __builtin_thread_pointer();
#else
    thread_local const char t_cOwn = 0;
    return &t_cOwn;
#endif
}
