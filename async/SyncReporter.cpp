#include "async/SyncReporter.h"

#include <new>
#include <utility>

#include "async/ResultPoster.h"

namespace {

/// Reports on the R/W thread. Freeing the event may release the last reference to the handler
/// there.
class CSyncReportEvent final : public ICmEvent {
 public:
    CSyncReportEvent(CRefPtr<ISyncReporter> pReporter, CmInt32 lResult)
        : ICmEvent(0), m_pReporter(std::move(pReporter)), m_lResult(lResult) {}
    CmInt32 OnEventFire() override {
        static_cast<CSyncReporter&>(*m_pReporter).PostStatus(m_lResult);
        return CACHE_OK;
    }

 private:
    const CRefPtr<ISyncReporter> m_pReporter;
    const CmInt32 m_lResult;
};

}  // namespace

void CSyncReporter::Report(CRefPtr<ISyncReporter> pSelf, CmInt32 lResult) {
    const CRefPtr<ICmEventQueue> pQueue = m_pRWThread->GetEventQueue();
    if (!pQueue) return PostStatus(lResult);
    ICmEvent* const pEvent = new (std::nothrow) CSyncReportEvent(std::move(pSelf), lResult);
    if (pEvent) pQueue->PostEvent(pEvent, c_lPostOption);
}

void CSyncReporter::PostStatus(CmInt32 lResult) {
    if (lResult == CACHE_OK) return;
    CResultPoster(m_pCallerThread.Get(), m_pReceive.Get())
        .PostStatus({m_LinkType, CCacheFileManager::Op_Write, lResult});
}
