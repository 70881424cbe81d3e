#pragma once

#include "core/FileOpSink.h"
#include "fileop/FileLedger.h"
#include "platform/CmThread.h"

/// Brings failures of the sync thread to the handler of an asynchronous file: through the R/W
/// thread, so that they come in the order of its other results, or directly once that has ended.
///
/// Owned by the file's ledger and by the requests on their way. It holds the handler, which so
/// lives until the last sync of its files has ended. Constant after construction, so any thread may
/// use it. Without memory for an event nothing is reported, as with every result.
class CSyncReport final : public ISyncReport {
 public:
    CSyncReport(ACmThread* pRWThread, ACmThread* pCallerThread, IFileOpStatus* pReceive,
                CCacheFileManager::LinkType aLinkType)
        : m_pRWThread(pRWThread),
          m_pCallerThread(pCallerThread),
          m_pReceive(pReceive),
          m_LinkType(aLinkType) {}

    void Report(CRefPtr<ISyncReport> pSelf, CmInt32 lResult) override;

    /// Posts Op_Write with the code to the caller thread, unless it is 0.
    void PostStatus(CmInt32 lResult);

 private:
    const CRefPtr<ACmThread> m_pRWThread;
    const CRefPtr<ACmThread> m_pCallerThread;
    const CRefPtr<IFileOpStatus> m_pReceive;
    const CCacheFileManager::LinkType m_LinkType;
};
