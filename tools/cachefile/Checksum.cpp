#include "tools/cachefile/Checksum.h"

#define XXH_INLINE_ALL  // the header alone, without a library to link
#include <xxhash.h>

#include <fstream>
#include <vector>

namespace {

/// Per read. An interrupt is noticed between two reads.
constexpr std::size_t c_nBlock = 262144;

}  // namespace

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

std::string ChecksumOfFile(const std::filesystem::path& aFile,
                           const std::function<void()>& aEachBlock) {
    std::ifstream aStream(aFile, std::ios::binary);
    std::vector<char> vecBlock(c_nBlock);
    CChecksum aChecksum;
    while (aStream) {
        if (aEachBlock) aEachBlock();
        aStream.read(vecBlock.data(), static_cast<std::streamsize>(vecBlock.size()));
        aChecksum.Add(vecBlock.data(), static_cast<std::size_t>(aStream.gcount()));
    }
    return aStream.eof() && !aStream.bad() ? aChecksum.GetText() : "";
}
