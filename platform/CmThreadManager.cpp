#include "platform/CmThreadManager.h"

#include <new>
#include <utility>

#include "platform/CmCallerState.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmResult.h"
#include "platform/CmSystem.h"
#include "platform/CmTaskThread.h"
#include "platform/CmTrace.h"

CCmThreadManager* CCmThreadManager::Instance() { return &CmNeverDestroyed<CCmThreadManager>(); }

CmInt32 CCmThreadManager::CreateUserTaskThread(CRefPtr<ACmThread>& pThread, TFlag /*aFlag*/,
                                               int /*nPriority*/, int /*nStack*/) {
    pThread = nullptr;
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    if (m_bExiting) return CACHE_ERR_INVALID_STATE;
    if (!m_bExitHandler) m_bExitHandler = CmRegisterExitHandler(&CCmThreadManager::OnProcessExit);
    const CRefPtr<CCmTaskThread> pNew(new (std::nothrow) CCmTaskThread(
        [](CCmTaskThread* pJoined) { Instance()->ForgetJoined(pJoined); }));
    if (!pNew) return CACHE_ERR_OUT_OF_MEMORY;
    const CmInt32 lResult = pNew->Start();
    if (lResult != CACHE_OK) return lResult;
    pNew->m_pEarlier = std::move(m_pTaskThreads);
    m_pTaskThreads = pNew;
    pThread = pNew.Get();
    return CACHE_OK;
}

CRefPtr<ACmThread> CCmThreadManager::GetThread(CmInt32 lType) {
    if (lType != Thread_Caller) return nullptr;
    return CCmCallerState::Instance().GetThread().Get();
}

void CCmThreadManager::ForgetJoined(CCmTaskThread* pThread) {
    CRefPtr<CCmTaskThread> pForgotten;  // freed after the lock
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    CRefPtr<CCmTaskThread>* pLink = &m_pTaskThreads;
    while (*pLink && pLink->Get() != pThread) pLink = &(*pLink)->m_pEarlier;
    if (!*pLink) return;
    pForgotten = std::move(*pLink);
    *pLink = std::move(pForgotten->m_pEarlier);
}

/// Writes everything that was accepted, in case the host did not shut the library down. The sink,
/// the wake-up callable and the descriptor belong to the host, which may have destroyed them
/// already, so they are no longer used.
void CCmThreadManager::OnProcessExit() {
    if (CmIsForkedChild()) return;
    CCmT120Trace::instance()->SetSink({});
    CCmCallerState::Instance().DropWakeUps();
    Instance()->StopAllForExit();
}

void CCmThreadManager::StopAllForExit() {
    CRefPtr<CCmTaskThread> pThread;
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        m_bExiting = true;
        pThread = std::move(m_pTaskThreads);
    }
    // Without the lock, which Join takes.
    for (; pThread; pThread = pThread->m_pEarlier) {
        pThread->Stop(nullptr);
        pThread->Join();
    }
}
