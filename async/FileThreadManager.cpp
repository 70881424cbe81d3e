#include "async/FileThreadManager.h"

#include "async/Shutdown.h"
#include "fileop/BlockStore.h"
#include "platform/CmCallerThread.h"
#include "platform/CmResult.h"
#include "platform/CmTrace.h"

CFileThreadManager* CFileThreadManager::Instance() { return &CmImmortal<CFileThreadManager>(); }

ACmThread* CFileThreadManager::GetPrimaryNFSThread() {
    if (m_pPrimaryNFSThread || m_nShutdowns > 0) return m_pPrimaryNFSThread;
    const CmInt32 lResult = CCmThreadManager::Instance()->CreateUserTaskThread(
        m_pPrimaryNFSThread, CCmThreadManager::TF_JOINABLE, 0, -1);
    if (lResult != CACHE_OK)
        CM_TRACE_ERROR("CFileThreadManager::GetPrimaryNFSThread->Start Local R/W Thread error"
                       << " this=" << this);
    return m_pPrimaryNFSThread;
}

ACmThread* CFileThreadManager::GetCallerThread() {
    return CCmThreadManager::Instance()->GetThread(CCmThreadManager::Thread_Caller);
}

void CFileThreadManager::StopThread(ACmThread* pThread) {
    if (!pThread || pThread != m_pPrimaryNFSThread) return;
    m_pPrimaryNFSThread = nullptr;
    pThread->Stop(nullptr);
    pThread->Join();
}

CmInt32 CFileThreadManager::Shutdown() {
    struct UnderWay {
        explicit UnderWay(int& nCount) : m_nCount(nCount) { ++m_nCount; }
        ~UnderWay() { --m_nCount; }
        int& m_nCount;
    } aUnderWay(m_nShutdowns);
    StopThread(m_pPrimaryNFSThread);
    CmUint32 dwRun = 0;
    do {
        CCmCallerThread::RunPending(&dwRun);
    } while (dwRun > 0);
    CBlockStore::Instance().Clear();
    return CACHE_OK;
}

CmInt32 CacheFileShutdown() { return CFileThreadManager::Instance()->Shutdown(); }
