#include "tests/faults/Faults.h"

#include <atomic>
#include <cstdio>
#include <thread>

namespace {

std::atomic<std::chrono::milliseconds> s_aWriteDelay{};

}  // namespace

void SetWriteDelay(std::chrono::milliseconds aDelay) { s_aWriteDelay = aDelay; }

extern "C" {

std::size_t __real_fwrite(const void* lpData, std::size_t nSize, std::size_t nCount,
                          std::FILE* pStream);

std::size_t __wrap_fwrite(const void* lpData, std::size_t nSize, std::size_t nCount,
                          std::FILE* pStream) {
    std::this_thread::sleep_for(s_aWriteDelay.load());
    return __real_fwrite(lpData, nSize, nCount, pStream);
}
}
