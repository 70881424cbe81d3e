#pragma once

#include "platform/CmCallerQueue.h"
#include "platform/CmQueuedThread.h"

/// The thread object of one attachment of a host's thread. It has no queue after the attachment has
/// ended.
///
/// Counted; the caller state holds it while the thread is attached, and so do the files that were
/// opened meanwhile. Threads as for CCmQueuedThread. The library did not start this thread, so it
/// can neither stop nor join it: both return CACHE_ERR_INVALID_STATE.
class CCmAttachedThread final : public CCmQueuedThread {
 public:
    /// For the calling thread, which becomes the owner of pQueue.
    explicit CCmAttachedThread(CCmCallerQueue* pQueue);

    CmInt32 Stop(void* pTimeout) override;
    CmInt32 Join() override;

    /// Takes the queue away for good.
    CRefPtr<CCmCallerQueue> Detach();

    /// The queue, for the host's side; null once detached.
    CRefPtr<CCmCallerQueue> GetCallerQueue();
};
