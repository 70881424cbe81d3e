#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "capi/cachefile_c.h"

/// What every function of the C interface shares: nothing is thrown out of it, and structs are
/// taken in and given out by the size that they carry.
namespace capi {

/// Calls aFunction and returns its code, or the code for what it throws.
template <class Function>
std::int32_t Guarded(Function aFunction) noexcept {
    try {
        return aFunction();
    } catch (const std::bad_alloc&) {
        return CACHEFILE_ERR_OUT_OF_MEMORY;
    } catch (...) {
        return CACHEFILE_ERR_FAILED;
    }
}

/// Copies the host's struct. False if it is null, or smaller than this library's, or larger with a
/// field that this library does not know and that is not 0.
template <class Struct>
bool TakeStruct(const Struct* pHost, Struct& aTaken) {
    if (!pHost || pHost->struct_size < sizeof(Struct)) return false;
    const auto* const pBytes = reinterpret_cast<const unsigned char*>(pHost);
    const bool bKnown = std::all_of(pBytes + sizeof(Struct), pBytes + pHost->struct_size,
                                    [](unsigned char by) { return by == 0; });
    if (bKnown) aTaken = *pHost;
    return bKnown;
}

/// Fills the host's struct, whose size stays; fields that this library does not know become 0.
/// False if it is null or smaller than this library's.
template <class Struct>
bool GiveStruct(Struct aGiven, Struct* pHost) {
    if (!pHost || pHost->struct_size < sizeof(Struct)) return false;
    aGiven.struct_size = pHost->struct_size;
    std::memset(reinterpret_cast<unsigned char*>(pHost) + sizeof(Struct), 0,
                pHost->struct_size - sizeof(Struct));
    *pHost = aGiven;
    return true;
}

template <std::size_t nSize>
bool IsZero(const std::uint8_t (&aReserved)[nSize]) {
    return std::all_of(aReserved, aReserved + nSize, [](std::uint8_t by) { return by == 0; });
}

}  // namespace capi
