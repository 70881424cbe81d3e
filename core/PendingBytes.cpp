#include "core/PendingBytes.h"

#include "core/CacheFileManager.h"
#include "core/RoomWakeUp.h"
#include "platform/CmResult.h"

namespace {

/// Writes become urgent above this: 32 blocks, which is enough for the worker to write many of them
/// after each short sleep, and no more memory than the store keeps for blocks anyway.
constexpr std::uint64_t c_qwMaxNotUrgent = 1U << 20;

/// Half the limit, so that the worker writes again before the host reaches it and is refused.
bool IsFarFromLimit(const CPendingCount& aCount, std::uint64_t qwBytes) {
    return aCount.GetBytes() + qwBytes <= aCount.GetLimit() / 2;
}

}  // namespace

CPendingBytes::CPendingBytes(std::uint64_t qwBytes, CPendingCount* pHandler)
    : m_qwBytes(qwBytes), m_pHandler(pHandler) {
    CPendingCount::OfProcess().Add(m_qwBytes);
    if (m_pHandler) m_pHandler->Add(m_qwBytes);
}

CPendingBytes::~CPendingBytes() {
    CPendingCount::OfProcess().Remove(m_qwBytes);
    if (m_pHandler) m_pHandler->Remove(m_qwBytes);
    CRoomWakeUp::OnFinished();
}

CmInt32 CPendingBytes::CheckRoom(std::uint64_t qwBytes, CPendingCount* pHandler) {
    if (qwBytes == 0) return CACHE_OK;
    const CPendingCount& aProcess = CPendingCount::OfProcess();
    if (qwBytes > aProcess.GetLimit() || (pHandler && qwBytes > pHandler->GetLimit()))
        return CACHE_ERR_OUT_OF_MEMORY;
    const bool bProcessRefuses = !aProcess.HasRoom(qwBytes);
    if (!bProcessRefuses && (!pHandler || pHandler->HasRoom(qwBytes))) return CACHE_OK;
    CRoomWakeUp::OnRefused({pHandler, bProcessRefuses, qwBytes});
    return CACHE_ERR_TRY_AGAIN;
}

ICmEvent::Urgency CPendingBytes::GetUrgency(std::uint64_t qwBytes, const CPendingCount* pHandler) {
    const CPendingCount& aProcess = CPendingCount::OfProcess();
    const bool bCanWait = aProcess.GetBytes() + qwBytes <= c_qwMaxNotUrgent &&
                          IsFarFromLimit(aProcess, qwBytes) &&
                          (!pHandler || IsFarFromLimit(*pHandler, qwBytes));
    return bCanWait ? ICmEvent::NotUrgent : ICmEvent::Urgent;
}

std::uint64_t CCacheFileManager::GetPendingBytes() { return CPendingCount::OfProcess().GetBytes(); }

void CCacheFileManager::SetPendingLimit(std::uint64_t qwBytes) {
    CPendingCount::OfProcess().SetLimit(qwBytes);
    CRoomWakeUp::OnFinished();
}
