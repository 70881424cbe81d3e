#include "async/FileThreadManager.h"

#include <utility>

#include "async/RequestMemory.h"
#include "async/Shutdown.h"
#include "fileop/BlockStore.h"
#include "fileop/SyncThread.h"
#include "platform/CmCallerThread.h"
#include "platform/CmResult.h"
#include "platform/CmSystem.h"
#include "platform/CmThreadManager.h"
#include "platform/CmTraceLine.h"

CFileThreadManager* CFileThreadManager::Instance() {
    return &CmNeverDestroyed<CFileThreadManager>();
}

CRefPtr<ACmThread> CFileThreadManager::GetPrimaryNFSThread() {
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        if (m_pPrimaryNFSThread || m_nShutdowns > 0) return m_pPrimaryNFSThread;
    }
    RegisterExitHandlers();
    CRefPtr<ACmThread> pThread;
    const CmInt32 lResult = CCmThreadManager::Instance()->CreateUserTaskThread(
        pThread, CCmThreadManager::TF_JOINABLE, 0, -1);
    if (lResult != CACHE_OK)
        TraceError("CFileThreadManager::GetPrimaryNFSThread->Start Local R/W Thread error",
                   " this=", this);
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    m_pPrimaryNFSThread = pThread;
    return pThread;
}

/// Registers the exit handlers that must run after the worker has ended: the last syncs, and the
/// freeing of the memory of asynchronous mode. The handler that ends the worker is registered
/// later, by the first thread, so it runs before them.
void CFileThreadManager::RegisterExitHandlers() {
    CBlockStore::Instance();  // registers its exit handler
    CSyncThread::RegisterExitHandler();
    static const bool s_bRegistered = CmRegisterExitHandler([] {
        if (CmIsForkedChild()) return;
        Instance()->TakePrimaryNFSThread();
        CRequestMemory::Clear();
    });
    (void)s_bRegistered;
}

CRefPtr<ACmThread> CFileThreadManager::TakePrimaryNFSThread() {
    CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
    return std::move(m_pPrimaryNFSThread);
}

CRefPtr<ACmThread> CFileThreadManager::GetCallerThread() {
    return CCmThreadManager::Instance()->GetThread(CCmThreadManager::Thread_Caller);
}

void CFileThreadManager::StopThread(const CRefPtr<ACmThread>& pThread) {
    CRefPtr<ACmThread> pStopped;
    {
        CCmMutexGuardT<CCmMutexThread> aGuard(m_mutex);
        if (!pThread || pThread.Get() != m_pPrimaryNFSThread.Get()) return;
        pStopped = std::move(m_pPrimaryNFSThread);
    }
    pStopped->Stop(nullptr);
    pStopped->Join();
}

CmInt32 CFileThreadManager::Shutdown() {
    struct RunningShutdown {  // a callback may throw
        explicit RunningShutdown(int& nShutdowns) : m_nShutdowns(nShutdowns) { ++m_nShutdowns; }
        ~RunningShutdown() { --m_nShutdowns; }
        int& m_nShutdowns;
    } aRunning(m_nShutdowns);
    if (const CRefPtr<ACmThread> pThread = TakePrimaryNFSThread()) {
        pThread->Stop(nullptr);
        pThread->Join();
    }
    CSyncThread::Instance().Finish();
    CmUint32 dwRun = 0;
    do {
        CCmCallerThread::RunPending(&dwRun);
    } while (dwRun > 0);
    CBlockStore::Instance().Clear();
    CRequestMemory::Clear();
    return CACHE_OK;
}

CmInt32 CacheFileShutdown() { return CFileThreadManager::Instance()->Shutdown(); }
