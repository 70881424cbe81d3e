#include "platform/CmThreadNumber.h"

#include <atomic>

namespace {

std::atomic<CmUint32> s_dwLastNumber{0};  // relaxed: numbers only have to differ
thread_local CmUint32 t_dwNumber = 0;  // 0 until the thread first asks, unless the library set it

}  // namespace

CmUint32 CmCurrentThreadNumber() {
    if (t_dwNumber == 0) t_dwNumber = CmNewThreadNumber();
    return t_dwNumber;
}

CmUint32 CmNewThreadNumber() { return s_dwLastNumber.fetch_add(1, std::memory_order_relaxed) + 1; }

void CmSetCurrentThreadNumber(CmUint32 dwNumber) { t_dwNumber = dwNumber; }
