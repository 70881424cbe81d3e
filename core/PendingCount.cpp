#include "core/PendingCount.h"

#include <algorithm>

#include "platform/CmNeverDestroyed.h"

namespace {

/// The smallest limit. A buffer can pass on up to 32,767 gathered bytes together with an append of
/// 32,768 bytes; a smaller limit could refuse such a block forever.
constexpr std::uint64_t c_qwMinLimit = 65536;

}  // namespace

void CPendingCount::SetLimit(std::uint64_t qwBytes) {
    m_qwLimit.store(std::max(qwBytes, c_qwMinLimit));
}

CPendingCount& CPendingCount::OfProcess() { return CmNeverDestroyed<CPendingCount>(); }
