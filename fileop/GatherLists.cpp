#include "fileop/GatherLists.h"

#include <new>
#include <utility>

#include "fileop/GatherAge.h"
#include "platform/CmSystem.h"

CGatherLists::CGatherLists() {
    CmRegisterForkHandlers([] { Instance().m_mutex.lock(); }, [] { Instance().m_mutex.unlock(); },
                           [] { Instance().AfterForkInChild(); });
}

CGatherList* CGatherLists::OfThisThread(bool bCreate) {
    for (CGatherList* p = m_pFirst.Get(); p; p = p->m_pNext.Get())
        if (p->IsMine()) return p;
    CGatherList* const pNew = bCreate ? new (std::nothrow) CGatherList(CmThreadToken()) : nullptr;
    if (!pNew) return nullptr;
    pNew->m_pNext = std::move(m_pFirst);
    m_pFirst = pNew;
    return pNew;
}

CRefPtr<CGatherList> CGatherLists::RemoveFile(CGatherAge& aFile) {
    CGatherList* const pList = std::exchange(aFile.m_pList, nullptr);
    if (--pList->m_dwFiles > 0) return nullptr;
    CRefPtr<CGatherList>* pLink = &m_pFirst;
    while (pLink->Get() != pList) pLink = &(*pLink)->m_pNext;
    CRefPtr<CGatherList> pUnused = std::move(*pLink);
    *pLink = std::move(pUnused->m_pNext);
    return pUnused;
}

void CGatherLists::WaitForFlush(std::unique_lock<std::mutex>& aLock, const CGatherList& aList,
                                const CGatherAge& aFile) {
    m_flushed.wait(aLock, [&] { return aList.m_pFlushing != &aFile; });
}

/// Watches are posted without the mutex, and the lists may change meanwhile. So the lists that need
/// a watch are marked first, and then taken one by one.
void CGatherLists::UpdateAll() {
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        for (CGatherList* p = m_pFirst.Get(); p; p = p->m_pNext.Get())
            p->m_bNeedsWatch = p->Update();
    }
    while (const CRefPtr<CGatherList> pList = TakeOneThatNeedsWatch()) pList->Watch();
}

CRefPtr<CGatherList> CGatherLists::TakeOneThatNeedsWatch() {
    std::lock_guard<std::mutex> aLock(m_mutex);
    for (CGatherList* p = m_pFirst.Get(); p; p = p->m_pNext.Get())
        if (std::exchange(p->m_bNeedsWatch, false)) return p;
    return nullptr;
}

void CGatherLists::AfterForkInChild() {
    for (CGatherList* p = m_pFirst.Get(); p; p = p->m_pNext.Get()) p->AfterForkInChild();
    new (&m_flushed) std::condition_variable;  // destroying it would wait for its waiters
    m_mutex.unlock();
}
