#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "capi/cachefile_c.h"

/// Helpers of all functions of the C interface. They turn exceptions into codes and copy structs,
/// whose sizes may differ from those of this library.
namespace capi {

/// Calls aFunction and returns its code. If it throws, returns the code for the exception.
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

/// Copies the host's struct. Returns false if it is null or smaller than this library's, or if a
/// field that this library does not know is not 0.
template <class Struct>
bool CopyStruct(const Struct* pHost, Struct& aCopy) {
    if (!pHost || pHost->struct_size < sizeof(Struct)) return false;
    const auto* const pBytes = reinterpret_cast<const unsigned char*>(pHost);
    const bool bKnown = std::all_of(pBytes + sizeof(Struct), pBytes + pHost->struct_size,
                                    [](unsigned char by) { return by == 0; });
    if (bKnown) aCopy = *pHost;
    return bKnown;
}

/// Fills the host's struct and keeps its struct_size. Fields that this library does not know become
/// 0. Returns false if the struct is null or smaller than this library's.
template <class Struct>
bool FillStruct(Struct aFilled, Struct* pHost) {
    if (!pHost || pHost->struct_size < sizeof(Struct)) return false;
    aFilled.struct_size = pHost->struct_size;
    std::memset(reinterpret_cast<unsigned char*>(pHost) + sizeof(Struct), 0,
                pHost->struct_size - sizeof(Struct));
    *pHost = aFilled;
    return true;
}

template <std::size_t nSize>
bool IsZero(const std::uint8_t (&aReserved)[nSize]) {
    return std::all_of(aReserved, aReserved + nSize, [](std::uint8_t by) { return by == 0; });
}

}  // namespace capi
