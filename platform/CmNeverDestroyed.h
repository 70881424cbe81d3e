#pragma once

#include <new>

/// The one T of the process: made on first use by whichever thread comes first, never destroyed,
/// so that it can still be used while static objects of the host end. It takes no heap memory.
/// T makes this function its friend when its constructor is private.
template <class T>
T& CmNeverDestroyed() {
    alignas(T) static unsigned char s_storage[sizeof(T)];
    static T* const s_pInstance = new (s_storage) T;
    return *s_pInstance;
}
