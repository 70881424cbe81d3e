#pragma once

#include <new>

/// The one T of the process. The first thread that uses it creates it. It is never destroyed, so
/// that it can still be used while static objects of the host are destroyed. It takes no heap
/// memory. T makes this function its friend when its constructor is private.
template <class T>
T& CmNeverDestroyed() {
    alignas(T) static unsigned char s_storage[sizeof(T)];
    static T* const s_pInstance = new (s_storage) T;
    return *s_pInstance;
}
