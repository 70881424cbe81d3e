#include "tools/cachefile/Checksum.h"

#define XXH_INLINE_ALL  // the header alone, without a library to link
#include <xxhash.h>

struct CChecksum::State {
    XXH3_state_t aState;
};

CChecksum::CChecksum() : m_pState(std::make_unique<State>()) {
    XXH3_128bits_reset(&m_pState->aState);
}

CChecksum::~CChecksum() = default;

void CChecksum::Add(const void* lpData, std::size_t nLength) {
    XXH3_128bits_update(&m_pState->aState, lpData, nLength);
}

std::string CChecksum::GetText() const {
    XXH128_canonical_t aBytes;
    XXH128_canonicalFromHash(&aBytes, XXH3_128bits_digest(&m_pState->aState));
    std::string strText;
    for (const unsigned char by : aBytes.digest)
        strText.append({"0123456789abcdef"[by >> 4], "0123456789abcdef"[by & 15]});
    return strText;
}
