#include "async/SyncReport.h"

#include <new>
#include <utility>

#include "async/FileEvents.h"

namespace {

/// Reports on the R/W thread. Freeing the event may release the last reference to the handler
/// there.
class CSyncReportEvent final : public ICmEvent {
 public:
    CSyncReportEvent(CRefPtr<ISyncReport> pReport, CmInt32 lResult)
        : ICmEvent(0), m_pReport(std::move(pReport)), m_lResult(lResult) {}
    CmInt32 OnEventFire() override {
        static_cast<CSyncReport&>(*m_pReport).PostStatus(m_lResult);
        return CACHE_OK;
    }

 private:
    const CRefPtr<ISyncReport> m_pReport;
    const CmInt32 m_lResult;
};

}  // namespace

void CSyncReport::Report(CRefPtr<ISyncReport> pSelf, CmInt32 lResult) {
    const CRefPtr<ICmEventQueue> pQueue = m_pRWThread->GetEventQueue();
    if (!pQueue) return PostStatus(lResult);
    ICmEvent* const pEvent = new (std::nothrow) CSyncReportEvent(std::move(pSelf), lResult);
    if (pEvent) pQueue->PostEvent(pEvent, c_lPostOption);
}

void CSyncReport::PostStatus(CmInt32 lResult) {
    const CRefPtr<ICmEventQueue> pQueue = m_pCallerThread->GetEventQueue();
    ICmEvent* const pEvent =
        pQueue && lResult != CACHE_OK
            ? new (std::nothrow) CFileStatusEvent(
                  m_pReceive.Get(), tagFileStatus{m_LinkType, CCacheFileManager::Op_Write, lResult})
            : nullptr;
    if (pEvent) pQueue->PostEvent(pEvent, c_lPostOption);
}
