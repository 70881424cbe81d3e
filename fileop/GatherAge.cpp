#include "fileop/GatherAge.h"

#include "fileop/GatherLists.h"

std::atomic<CmUint32> CGatherAge::s_dwAge{0};

CGatherAge::~CGatherAge() {
    RemoveFromList();
    if (!m_pList) return;
    CRefPtr<CGatherList> pUnused;  // freed without the mutex
    const std::unique_lock<std::mutex> aLock(CGatherLists::Instance().Mutex());
    pUnused = CGatherLists::Instance().RemoveFile(*this);
}

/// After the first gathered byte, and after a write that gathered nothing.
void CGatherAge::AfterUnlisted(bool bHasGathered) {
    if (bHasGathered) AddToList();
    if (!m_pList)
        FlushAged();
    else if (m_pList->MayHaveDueFile())
        m_pList->FlushIfDue();
}

void CGatherAge::AddToList() {
    // A file whose threads have ended does not decide which thread watches the list.
    const tagFileThreads aThreads = MayFlush() ? m_file.GetThreads() : tagFileThreads{};
    CRefPtr<CGatherList> pList;
    bool bWatch = false;
    {
        const std::unique_lock<std::mutex> aLock(CGatherLists::Instance().Mutex());
        if (!m_pList) {
            m_pList = CGatherLists::Instance().OfThisThread(true);
            if (!m_pList) return;
            ++m_pList->m_dwFiles;
        }
        pList = m_pList;
        if (m_firstByte == CGatherList::Clock::time_point{})
            m_firstByte = CGatherList::Clock::now();
        bWatch = m_pList->Link(*this, aThreads);
    }
    if (bWatch) pList->Watch();
}

/// Takes the file out of its list. If the list is another thread's, the file no longer belongs to
/// it afterwards; a flush of the file that is running there is waited for first.
void CGatherAge::RemoveFromList() {
    if (!m_pList) return;
    const bool bMine = m_pList->IsMine();
    if (bMine && !m_bListed) return;
    CRefPtr<CGatherList> pUnused;  // freed without the mutex
    CGatherLists& aLists = CGatherLists::Instance();
    std::unique_lock<std::mutex> aLock(aLists.Mutex());
    if (!bMine) aLists.WaitForFlush(aLock, *m_pList, *this);
    if (m_bListed) m_pList->Unlink(*this);
    if (!bMine) pUnused = aLists.RemoveFile(*this);
}

/// False for an asynchronous file whose caller thread has been detached or whose worker has been
/// stopped.
bool CGatherAge::MayFlush() const {
    const tagFileThreads aThreads = m_file.GetThreads();
    if (!aThreads.pWorker) return true;
    return aThreads.pWorker->GetEventQueue() && aThreads.pCaller &&
           aThreads.pCaller->GetEventQueue();
}

void CGatherAge::SetAge(CmUint32 dwMilliseconds) {
    s_dwAge.store(dwMilliseconds, std::memory_order_relaxed);
    CGatherLists::Instance().UpdateAll();
}

void CGatherAge::FlushAged() {
    if (!IsOn()) return;
    CRefPtr<CGatherList> pList;
    {
        const std::unique_lock<std::mutex> aLock(CGatherLists::Instance().Mutex());
        pList = CGatherLists::Instance().OfThisThread(false);
    }
    if (pList) pList->FlushDue();
}

void CCacheFileManager::SetGatherAge(CmUint32 dwMs) { CGatherAge::SetAge(dwMs); }

void CCacheFileManager::FlushAged() { CGatherAge::FlushAged(); }
