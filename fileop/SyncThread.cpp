#include "fileop/SyncThread.h"

#include <algorithm>
#include <new>
#include <system_error>
#include <utility>

#include "core/CacheFileManager.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmResult.h"
#include "platform/CmSystem.h"
#include "platform/CmTrace.h"

void CSyncList::PushBack(CRefPtr<CSyncRecord> pRecord) {
    CSyncRecord* const pLast = pRecord.Get();
    (m_pFirst ? m_pLast->m_pNext : m_pFirst) = std::move(pRecord);
    m_pLast = pLast;
}

CRefPtr<CSyncRecord> CSyncList::PopUntil(Time aTime) {
    if (!m_pFirst || m_pFirst->m_since > aTime) return nullptr;
    CRefPtr<CSyncRecord> pRecord = std::move(m_pFirst);
    m_pFirst = std::move(pRecord->m_pNext);
    return pRecord;
}

void CSyncList::ClearWithoutFreeing() {
    if (m_pFirst) m_pFirst->AddReference();
    m_pFirst = nullptr;
}

std::atomic<bool> CSyncThread::s_bOn{false};

namespace {

thread_local bool t_bIsSyncThread = false;

}  // namespace

CSyncThread& CSyncThread::Instance() { return CmNeverDestroyed<CSyncThread>(); }

CmInt32 CCacheFileManager::SetSyncInterval(CmUint32 dwMs) {
    return CSyncThread::Instance().SetInterval(dwMs);
}

void CSyncThread::RegisterExitHandler() {
    static const bool s_bRegistered = CmRegisterExitHandler([] {
        if (CmIsForkedChild() || !IsOn()) return;
        CCmT120Trace::instance()->SetSink({});  // the host's objects may be destroyed already
        Instance().Finish();
    });
    (void)s_bRegistered;
}

CmInt32 CSyncThread::SetInterval(CmUint32 dwMilliseconds) {
    if (dwMilliseconds == 0) {
        Finish();
        return CACHE_OK;
    }
    static const bool s_bWatched =
        CmRegisterForkHandlers(BeforeFork, AfterForkInParent, AfterForkInChild);
    (void)s_bWatched;
    RegisterExitHandler();
    std::lock_guard<std::mutex> aControl(m_mutexControl);
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        if (m_bForkedChild) return CACHE_ERR_INVALID_STATE;
        m_interval = std::chrono::milliseconds(dwMilliseconds);
        m_bStop = false;
    }
    const CmInt32 lResult = m_thread.joinable() ? CmInt32{CACHE_OK} : Start();
    s_bOn = lResult == CACHE_OK;
    m_wake.notify_one();
    return lResult;
}

CmInt32 CSyncThread::Start() {
    try {
        const CCmSignalBlocker aBlocker;
        m_thread = std::thread([this] { Run(); });
        return CACHE_OK;
    } catch (const std::bad_alloc&) {
        return CACHE_ERR_OUT_OF_MEMORY;
    } catch (const std::system_error&) {
        return CACHE_ERR_FAILED;
    }
}

bool CSyncThread::Add(CSyncRecord* pRecord) {
    bool bWake = false;
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        if (!IsOn()) return false;
        bWake = (m_fresh.IsEmpty() && m_started.IsEmpty()) || CSyncDescriptor::AreMany();
        pRecord->m_since = Clock::now();
        m_fresh.PushBack(pRecord);
    }
    if (bWake) m_wake.notify_one();
    return true;
}

void CSyncThread::Wake() {
    { const std::lock_guard<std::mutex> aLock(m_mutex); }  // it looks now, or waits already
    m_wake.notify_one();
}

void CSyncThread::Run() {
    t_bIsSyncThread = true;
    std::unique_lock<std::mutex> aLock(m_mutex);
    while (!m_bStop)
        if (!ProcessDueRecord(aLock)) Sleep(aLock);
}

/// Starts one write-back or runs one sync that is due, with the mutex unlocked meanwhile. Returns
/// false if nothing is due.
bool CSyncThread::ProcessDueRecord(std::unique_lock<std::mutex>& aLock) {
    const bool bAll = CSyncDescriptor::AreMany();
    CRefPtr<CSyncRecord> pFresh =
        m_fresh.PopUntil(bAll ? Clock::time_point::min() : Clock::now() - m_interval / 4);
    if (pFresh) {
        aLock.unlock();
        pFresh->StartWriteBack();
        aLock.lock();
        m_started.PushBack(std::move(pFresh));
        return true;
    }
    CRefPtr<CSyncRecord> pDue = PopForSync(bAll);
    if (!pDue) return false;
    aLock.unlock();
    pDue->SyncScheduled();
    pDue = nullptr;
    aLock.lock();
    return true;
}

/// Removes and returns the first record whose sync is due, or with bAll the first record. Null if
/// there is none. Called with the mutex locked.
CRefPtr<CSyncRecord> CSyncThread::PopForSync(bool bAll) {
    if (!bAll) return m_started.PopUntil(Clock::now() - m_interval / 2);
    CRefPtr<CSyncRecord> pRecord = m_started.PopUntil(Clock::time_point::max());
    return pRecord ? pRecord : m_fresh.PopUntil(Clock::time_point::max());
}

void CSyncThread::Sleep(std::unique_lock<std::mutex>& aLock) {
    if (m_fresh.IsEmpty() && m_started.IsEmpty()) return m_wake.wait(aLock);
    Clock::time_point aDue = Clock::time_point::max();
    if (!m_fresh.IsEmpty()) aDue = m_fresh.FirstTime() + m_interval / 4;
    if (!m_started.IsEmpty()) aDue = std::min(aDue, m_started.FirstTime() + m_interval / 2);
    m_wake.wait_until(aLock, aDue);
}

void CSyncThread::Finish() {
    if (t_bIsSyncThread) return;  // it has called exit, and cannot wait for itself
    std::lock_guard<std::mutex> aControl(m_mutexControl);
    {
        std::lock_guard<std::mutex> aLock(m_mutex);
        s_bOn = false;
        m_bStop = true;
    }
    m_wake.notify_one();
    if (m_thread.joinable()) m_thread.join();
    for (;;) {
        CRefPtr<CSyncRecord> pRecord;
        {
            std::lock_guard<std::mutex> aLock(m_mutex);
            pRecord = PopForSync(true);
        }
        if (!pRecord) return;
        pRecord->SyncScheduled();
    }
}

/// Locks m_mutex, which files use too. m_mutexControl is not locked, because Finish may hold it for
/// the time of several syncs.
void CSyncThread::BeforeFork() { Instance().m_mutex.lock(); }

void CSyncThread::AfterForkInParent() { Instance().m_mutex.unlock(); }

/// The child has no sync thread. The records belong to the parent: they are dropped from the lists,
/// but stay in memory.
void CSyncThread::AfterForkInChild() {
    CSyncThread& aSelf = Instance();
    s_bOn = false;
    aSelf.m_bForkedChild = true;
    aSelf.m_fresh.ClearWithoutFreeing();
    aSelf.m_started.ClearWithoutFreeing();
    new (&aSelf.m_thread) std::thread;  // there is none to join or detach
    new (&aSelf.m_wake) std::condition_variable;
    new (&aSelf.m_mutexControl) std::mutex;
    aSelf.m_mutex.unlock();
}
