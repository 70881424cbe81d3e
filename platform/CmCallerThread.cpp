#include "platform/CmCallerThread.h"

#include <chrono>
#include <new>
#include <utility>

#include "platform/CmCallerState.h"
#include "platform/CmResult.h"

CmInt32 CCmCallerThread::Attach() { return CCmCallerState::Instance().Attach(); }

CmInt32 CCmCallerThread::Detach() { return CCmCallerState::Instance().Detach(); }

bool CCmCallerThread::IsCurrent() { return bool{CCmCallerState::Instance().GetOwnQueue()}; }

CmInt32 CCmCallerThread::RunPending(CmUint32* pdwCount) { return WaitAndRun(0, pdwCount); }

CmInt32 CCmCallerThread::WaitAndRun(CmUint32 dwMilliseconds, CmUint32* pdwCount) {
    if (pdwCount) *pdwCount = 0;
    const CRefPtr<CCmCallerQueue> pQueue = CCmCallerState::Instance().GetOwnQueue();
    if (!pQueue) return CACHE_ERR_INVALID_STATE;
    CmUint32 dwIgnored = 0;
    CmUint32& dwCount = pdwCount ? *pdwCount : dwIgnored;
    if (dwMilliseconds == 0) {
        pQueue->RunWaiting(dwCount);
        return CACHE_OK;
    }
    const auto aLimit = CCmEventQueue::Clock::now() + std::chrono::milliseconds(dwMilliseconds);
    // Upkeep does not end the host's wait.
    while (pQueue->WaitUntil(aLimit) && !pQueue->RunWaiting(dwCount)) {
    }
    return CACHE_OK;
}

CmInt32 CCmCallerThread::SetWakeUp(WakeUp aWakeUp) {
    const CRefPtr<CCmCallerQueue> pQueue = CCmCallerState::Instance().GetOwnQueue();
    if (!pQueue) return CACHE_ERR_INVALID_STATE;
    try {
        pQueue->SetWakeUp(std::move(aWakeUp));
    } catch (const std::bad_alloc&) {
        return CACHE_ERR_OUT_OF_MEMORY;
    }
    return CACHE_OK;
}

CmInt32 CCmCallerThread::GetWakeDescriptor(int& nDescriptor) {
    nDescriptor = -1;
    const CRefPtr<CCmCallerQueue> pQueue = CCmCallerState::Instance().GetOwnQueue();
    if (!pQueue) return CACHE_ERR_INVALID_STATE;
    nDescriptor = pQueue->GetDescriptor();
    return nDescriptor >= 0 ? CACHE_OK : CACHE_ERR_FAILED;
}
