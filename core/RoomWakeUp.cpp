#include "core/RoomWakeUp.h"

#include <algorithm>
#include <new>
#include <utility>

#include "core/CacheFileManager.h"
#include "platform/CmNeverDestroyed.h"
#include "platform/CmResult.h"
#include "platform/CmSystem.h"
#include "platform/CmThreadManager.h"

namespace {

/// Does nothing when it runs: the host is woken because an event is queued.
class CRoomEvent final : public ICmEvent {
 public:
    CRoomEvent() : ICmEvent(0, Urgent, WakeUp) {}
    ~CRoomEvent() override { CRoomWakeUp::Instance().OnEventFreed(); }
    CmInt32 OnEventFire() override { return CACHE_OK; }
};

/// The limit that refused the write has to be at most half used, so that the host can write several
/// pieces before the next refusal. For the other limit it is enough that the write fits: other
/// handlers may keep that one more than half used all the time.
bool HasRoom(const tagRefusal& aRefusal) {
    const CPendingCount& aProcess = CPendingCount::OfProcess();
    const CPendingCount* const pHandler = aRefusal.pHandler.Get();
    const CPendingCount& aRefusing = aRefusal.bByProcess ? aProcess : *pHandler;
    if (aRefusing.GetBytes() == 0) return true;
    return aProcess.HasRoom(aRefusal.qwBytes) &&
           (!pHandler || pHandler->HasRoom(aRefusal.qwBytes)) && aRefusing.IsAtMostHalf();
}

}  // namespace

std::atomic<bool> CRoomWakeUp::s_bOn{false};
std::atomic<bool> CRoomWakeUp::s_bRefused{false};

CRoomWakeUp& CRoomWakeUp::Instance() { return CmNeverDestroyed<CRoomWakeUp>(); }

CRoomWakeUp::CRoomWakeUp() {
    CmRegisterForkHandlers([] { Instance().m_mutex.lock(); }, [] { Instance().m_mutex.unlock(); },
                           [] { Instance().AfterForkInChild(); });
}

void CRoomWakeUp::SetOn(bool bOn) {
    CRefPtr<ACmThread> pCaller;  // released without the mutex
    const std::lock_guard<std::mutex> aLock(m_mutex);
    s_bOn.store(bOn);
    if (bOn) return;
    m_vecRefusals.clear();
    s_bRefused.store(false);
    pCaller = std::move(m_pCaller);
}

void CRoomWakeUp::OnRefused(const tagRefusal& aRefusal) {
    if (!s_bOn.load(std::memory_order_relaxed)) return;
    Instance().Add(aRefusal);
    OnFinished();  // the last write may have finished before the refusal was added
}

/// Of several refused pieces of a handler the smallest is kept, so that the host is woken as soon
/// as one of them fits.
void CRoomWakeUp::Add(const tagRefusal& aNew) try {
    CRefPtr<ACmThread> pCaller =
        CCmThreadManager::Instance()->GetThread(CCmThreadManager::Thread_Caller);
    const std::lock_guard<std::mutex> aLock(m_mutex);
    if (!s_bOn.load()) return;
    const auto it =
        std::find_if(m_vecRefusals.begin(), m_vecRefusals.end(), [&](const tagRefusal& aRefusal) {
            return aRefusal.pHandler.Get() == aNew.pHandler.Get() &&
                   aRefusal.bByProcess == aNew.bByProcess;
        });
    if (it != m_vecRefusals.end())
        it->qwBytes = std::min(it->qwBytes, aNew.qwBytes);
    else
        m_vecRefusals.push_back(aNew);
    std::swap(m_pCaller, pCaller);
    s_bRefused.store(true);
} catch (const std::bad_alloc&) {
}

void CRoomWakeUp::WakeIfRoom() {
    CRefPtr<ACmThread> pCaller;
    ICmEvent* pEvent = nullptr;
    {
        const std::lock_guard<std::mutex> aLock(m_mutex);
        const auto it = std::partition(m_vecRefusals.begin(), m_vecRefusals.end(),
                                       [](const auto& aRefusal) { return !HasRoom(aRefusal); });
        if (it == m_vecRefusals.end()) return;
        if (!m_bPosted.load()) {
            pEvent = new (std::nothrow) CRoomEvent;
            if (!pEvent) return;
            m_bPosted.store(true);
            pCaller = m_pCaller;
        }
        m_vecRefusals.erase(it, m_vecRefusals.end());
        s_bRefused.store(!m_vecRefusals.empty());
    }
    if (!pEvent) return;
    const CRefPtr<ICmEventQueue> pQueue = pCaller ? pCaller->GetEventQueue() : nullptr;
    if (pQueue)
        pQueue->PostEvent(pEvent, 1);
    else
        delete pEvent;
}

/// In the child of a fork, with the mutex locked. The thread object belongs to the parent, so
/// another reference is added to keep it from being freed here.
void CRoomWakeUp::AfterForkInChild() {
    m_vecRefusals.clear();
    s_bRefused.store(false);
    if (m_pCaller) m_pCaller->AddReference();
    m_pCaller = nullptr;
    m_mutex.unlock();
}

void CCacheFileManager::SetRoomWakeUp(int bOn) { CRoomWakeUp::Instance().SetOn(bOn != 0); }
