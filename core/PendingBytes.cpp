#include "core/PendingBytes.h"

#include <algorithm>

#include "core/CacheFileManager.h"
#include "core/RoomWakeUp.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmResult.h"

namespace {

/// The smallest limit. A buffer can pass on up to 32,767 gathered bytes together with an append of
/// 32,768 bytes; a smaller limit could refuse such a block forever.
constexpr std::uint64_t c_qwMinLimit = 65536;

/// Writes become urgent above this: 32 blocks, which is enough for the worker to write many of them
/// after each short sleep, and no more memory than the store keeps for blocks anyway.
constexpr std::uint64_t c_qwMaxNotUrgent = 1U << 20;

/// Half the limit, so that the worker writes again before the host reaches it and is refused.
bool IsFarFromLimit(const CPendingCount& aCount, std::uint64_t qwBytes) {
    return aCount.GetBytes() + qwBytes <= aCount.GetLimit() / 2;
}

}  // namespace

void CPendingCount::SetLimit(std::uint64_t qwBytes) {
    m_qwLimit.store(std::max(qwBytes, c_qwMinLimit));
}

CPendingCount& CPendingBytes::OfProcess() { return CmNeverDestroyed<CPendingCount>(); }

CPendingBytes::CPendingBytes(std::uint64_t qwBytes, CPendingCount* pHandler)
    : m_qwBytes(qwBytes), m_pHandler(pHandler) {
    OfProcess().Add(m_qwBytes);
    if (m_pHandler) m_pHandler->Add(m_qwBytes);
}

CPendingBytes::~CPendingBytes() {
    OfProcess().Remove(m_qwBytes);
    if (m_pHandler) m_pHandler->Remove(m_qwBytes);
    CRoomWakeUp::OnFinished();
}

CmInt32 CPendingBytes::CheckRoom(std::uint64_t qwBytes, CPendingCount* pHandler) {
    if (qwBytes == 0) return CACHE_OK;
    const CPendingCount& aProcess = OfProcess();
    if (qwBytes > aProcess.GetLimit() || (pHandler && qwBytes > pHandler->GetLimit()))
        return CACHE_ERR_OUT_OF_MEMORY;
    const bool bProcessRefuses = !aProcess.HasRoom(qwBytes);
    if (!bProcessRefuses && (!pHandler || pHandler->HasRoom(qwBytes))) return CACHE_OK;
    CRoomWakeUp::OnRefused({pHandler, bProcessRefuses, qwBytes});
    return CACHE_ERR_TRY_AGAIN;
}

ICmEvent::Urgency CPendingBytes::GetUrgency(std::uint64_t qwBytes, const CPendingCount* pHandler) {
    const CPendingCount& aProcess = OfProcess();
    const bool bCanWait = aProcess.GetBytes() + qwBytes <= c_qwMaxNotUrgent &&
                          IsFarFromLimit(aProcess, qwBytes) &&
                          (!pHandler || IsFarFromLimit(*pHandler, qwBytes));
    return bCanWait ? ICmEvent::NotUrgent : ICmEvent::Urgent;
}

std::uint64_t CCacheFileManager::GetPendingBytes() { return CPendingBytes::OfProcess().GetBytes(); }

void CCacheFileManager::SetPendingLimit(std::uint64_t qwBytes) {
    CPendingBytes::OfProcess().SetLimit(qwBytes);
    CRoomWakeUp::OnFinished();
}
