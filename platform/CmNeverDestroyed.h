#pragma once

#include <new>

/// Returns the only T of the process. The first call creates it. It is never destroyed, so that it
/// can still be used while static objects of the host are destroyed. It uses no heap memory. If the
/// constructor of T is private, T declares this function a friend.
template <class T>
T& CmNeverDestroyed() {
    alignas(T) static unsigned char s_storage[sizeof(T)];
    static T* const s_pInstance = new (s_storage) T;
    return *s_pInstance;
}
