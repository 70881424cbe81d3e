#pragma once

#include "core/FileOpSink.h"
#include "fileop/FileLedger.h"
#include "platform/CmThread.h"

/// Reports failures of the sync thread to the handler of an asynchronous file. They go through the
/// R/W thread, so that they are in order with the other results of the file. After the R/W thread
/// has ended they are posted to the caller thread directly.
///
/// Owned by the file's ledger and by queued events. It holds a reference to the handler, so the
/// handler lives until the last sync of its files has ended. It is constant after construction, so
/// any thread may use it. If there is no memory for an event, nothing is reported.
class CSyncReporter final : public ISyncReporter {
 public:
    CSyncReporter(ACmThread* pRWThread, ACmThread* pCallerThread, IFileOpStatus* pReceive,
                  CCacheFileManager::LinkType aLinkType)
        : m_pRWThread(pRWThread),
          m_pCallerThread(pCallerThread),
          m_pReceive(pReceive),
          m_LinkType(aLinkType) {}

    void Report(CRefPtr<ISyncReporter> pSelf, CmInt32 lResult) override;

    /// Posts Op_Write with the code to the caller thread, unless the code is 0.
    void PostStatus(CmInt32 lResult);

 private:
    const CRefPtr<ACmThread> m_pRWThread;
    const CRefPtr<ACmThread> m_pCallerThread;
    const CRefPtr<IFileOpStatus> m_pReceive;
    const CCacheFileManager::LinkType m_LinkType;
};
