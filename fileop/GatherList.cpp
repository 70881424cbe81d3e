#include "fileop/GatherList.h"

#include <new>
#include <utility>

#include "fileop/GatherAge.h"
#include "fileop/GatherLists.h"
#include "platform/CmSystem.h"

namespace {

using Lock = std::unique_lock<std::mutex>;

std::mutex& Mutex() { return CGatherLists::Instance().Mutex(); }

std::chrono::milliseconds Age(CmUint32 dwAge) { return std::chrono::milliseconds(dwAge); }

/// Flushes the files of a list that are due when the thread of the list runs its queue.
class CGatherDueEvent final : public ICmEvent {
 public:
    explicit CGatherDueEvent(CGatherList* pList) : ICmEvent(0, NotUrgent, Upkeep), m_pList(pList) {}
    CmInt32 OnEventFire() override {
        if (m_pList->IsMine()) m_pList->FlushDue();
        return CACHE_OK;
    }

 private:
    const CRefPtr<CGatherList> m_pList;
};

}  // namespace

/// Checks a list, on the worker. If the worker drops it unfired, its destructor ends the watch.
class CGatherWatch final : public ICmTimedEvent {
 public:
    CGatherWatch(CGatherList* pList, std::uint64_t qwWatch, Time aTime)
        : ICmTimedEvent(aTime, pList, qwWatch), m_pList(pList), m_qwWatch(qwWatch) {}
    ~CGatherWatch() override;
    CmInt32 OnEventFire() override;

 private:
    const CRefPtr<CGatherList> m_pList;
    const std::uint64_t m_qwWatch;
};

/// If this watch has neither fired nor been replaced, the thread of the list checks the clock from
/// now on.
CGatherWatch::~CGatherWatch() {
    const Lock aLock(Mutex());
    if (!m_pList->IsWatchedBy(m_qwWatch)) return;
    m_pList->EndWatch();
    if (m_pList->m_pFirst && CGatherAge::IsOn()) m_pList->StartClock();
}

CmInt32 CGatherWatch::OnEventFire() {
    CRefPtr<ACmThread> pCaller;
    bool bWatch = false;
    {
        const Lock aLock(Mutex());
        if (!m_pList->IsWatchedBy(m_qwWatch)) return CACHE_OK;
        m_pList->EndWatch();
        if (!m_pList->m_pFirst || !CGatherAge::IsOn()) return CACHE_OK;
        if (m_pList->DueTime() <= CGatherList::Clock::now()) {
            m_pList->m_state = CGatherList::Due;
            pCaller = m_pList->m_pCaller;
        } else {
            bWatch = m_pList->Update();
        }
    }
    if (bWatch) m_pList->Watch();
    const CRefPtr<ICmEventQueue> pQueue = pCaller ? pCaller->GetEventQueue() : nullptr;
    ICmEvent* const pEvent = pQueue ? new (std::nothrow) CGatherDueEvent(m_pList.Get()) : nullptr;
    return pEvent ? pQueue->PostEvent(pEvent, 1) : CmInt32{CACHE_OK};
}

CGatherList::Clock::time_point CGatherList::DueTime() const {
    return m_pFirst->m_firstByte + Age(CGatherAge::s_dwAge.load(std::memory_order_relaxed));
}

/// Inserts the file by the time of its oldest byte. That is the end of the list, except for a file
/// that has moved to another thread.
bool CGatherList::Link(CGatherAge& aFile, const tagFileThreads& aThreads) {
    CGatherAge* pEarlier = m_pLast;
    while (pEarlier && pEarlier->m_firstByte > aFile.m_firstByte) pEarlier = pEarlier->m_pEarlier;
    CGatherAge*& pLater = pEarlier ? pEarlier->m_pLater : m_pFirst;
    aFile.m_pEarlier = pEarlier;
    aFile.m_pLater = pLater;
    (pLater ? pLater->m_pEarlier : m_pLast) = &aFile;
    pLater = &aFile;
    aFile.m_bListed = true;
    aFile.m_bWithoutWorker = !aThreads.pWorker;
    if (aFile.m_bWithoutWorker) ++m_dwWithoutWorker;
    // The host may have detached its thread and attached it again: then the caller is another one.
    const bool bNewThreads = aThreads.pWorker && (aThreads.pWorker != m_pWorker.Get() ||
                                                  aThreads.pCaller != m_pCaller.Get());
    if (bNewThreads) {
        EndWatch();
        m_pWorker = aThreads.pWorker;
        m_pCaller = aThreads.pCaller;
    }
    const bool bStartsClock = aFile.m_bWithoutWorker && m_state == Idle;
    return (bNewThreads || bStartsClock || m_pFirst == &aFile) && Update();
}

void CGatherList::Unlink(CGatherAge& aFile) {
    (aFile.m_pEarlier ? aFile.m_pEarlier->m_pLater : m_pFirst) = aFile.m_pLater;
    (aFile.m_pLater ? aFile.m_pLater->m_pEarlier : m_pLast) = aFile.m_pEarlier;
    aFile.m_bListed = false;
    if (aFile.m_bWithoutWorker) --m_dwWithoutWorker;
    if (!m_pFirst) m_state = Idle;
}

/// Decides how the list is checked next: by the worker, by the thread of the list, by both or not
/// at all. Returns whether Watch has to be called, because the worker would check too late. A watch
/// that comes too early is kept: it starts the next one.
bool CGatherList::Update() {
    m_state = Idle;
    if (!m_pFirst || !CGatherAge::IsOn()) return false;
    if (!m_pWorker || m_dwWithoutWorker > 0) StartClock();
    return m_pWorker && DueTime() < m_watchTime;
}

/// Makes the thread of the list check the clock. The coarse clock may be one step behind the exact
/// one, so the thread begins to check the exact clock one step earlier.
void CGatherList::StartClock() {
    const std::chrono::nanoseconds aLeft = DueTime() - Clock::now();
    m_nCheckTime = CmCoarseTime() + aLeft.count() - CmCoarseStep();
    m_state = UseClock;
}

void CGatherList::EndWatch() {
    m_watchTime = c_noWatch;
    ++m_qwWatch;
}

void CGatherList::Watch() {
    CRefPtr<ACmThread> pWorker;
    CRefPtr<ACmThread> pCaller;  // both are released after the mutex
    ICmTimedEvent* pEvent = nullptr;
    {
        const Lock aLock(Mutex());
        if (!m_pFirst || DueTime() >= m_watchTime) return;
        if (!m_pWorker) return StartClock();
        pWorker = m_pWorker;
        EndWatch();
        pEvent = new (std::nothrow) CGatherWatch(this, m_qwWatch, DueTime());
        if (pEvent) m_watchTime = DueTime();
    }
    const CRefPtr<ICmEventQueue> pQueue = pWorker->GetEventQueue();
    if (pEvent && pQueue) {
        pQueue->PostTimedEvent(pEvent);
        return;
    }
    delete pEvent;
    const Lock aLock(Mutex());
    if (IsWatched() || !m_pFirst) return;
    if (!pQueue && pWorker.Get() == m_pWorker.Get()) {  // it has been stopped
        m_pWorker = nullptr;
        pCaller = std::move(m_pCaller);
    }
    StartClock();
}

void CGatherList::FlushIfDue() {
    if (m_state.load(std::memory_order_relaxed) == UseClock &&
        CmCoarseTime() < m_nCheckTime.load(std::memory_order_relaxed))
        return;
    FlushDue();
}

CGatherAge* CGatherList::TakeDue() {
    if (!m_pFirst || !CGatherAge::IsOn() || DueTime() > Clock::now()) return nullptr;
    CGatherAge* const pFile = m_pFirst;
    Unlink(*pFile);
    pFile->m_firstByte = {};
    return pFile;
}

void CGatherList::FlushDue() {
    const CRefPtr<CGatherList> pSelf(this);
    bool bWatch = false;
    {
        Lock aLock(Mutex());
        while (CGatherAge* const pFile = TakeDue()) {
            m_pFlushing = pFile;
            aLock.unlock();
            if (pFile->MayFlush()) pFile->m_file.Flush();
            aLock.lock();
            m_pFlushing = nullptr;
            CGatherLists::Instance().OnFlushed();
        }
        bWatch = Update();
    }
    if (bWatch) Watch();
}

/// In the child of a fork. The thread objects belong to the parent, so another reference is added
/// to keep them from being freed here.
void CGatherList::AfterForkInChild() {
    while (m_pFirst) Unlink(*m_pFirst);
    m_pFlushing = nullptr;
    EndWatch();
    for (CRefPtr<ACmThread>* pp : {&m_pWorker, &m_pCaller}) {
        if (*pp) (*pp)->AddReference();
        *pp = nullptr;
    }
}
