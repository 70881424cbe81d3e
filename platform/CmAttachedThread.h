#pragma once

#include "platform/CmCallerQueue.h"
#include "platform/CmQueuedThread.h"

/// The thread object of one attachment of a host's thread. It has no queue after the attachment has
/// ended.
///
/// Counted: the caller state holds it while the thread is attached, and so do the files that were
/// opened in this time. Threads as for CCmQueuedThread. The library did not start this thread, so
/// it cannot stop or join it: both return CACHE_ERR_INVALID_STATE.
class CCmAttachedThread final : public CCmQueuedThread {
 public:
    /// For the calling thread, which becomes the owner of pQueue.
    explicit CCmAttachedThread(CCmCallerQueue* pQueue);

    CmInt32 Stop(void* pTimeout) override;
    CmInt32 Join() override;

    /// Removes the queue from the object. It gets no other one.
    CRefPtr<CCmCallerQueue> Detach();

    /// Returns the queue, or null after the thread was detached. For the host's thread.
    CRefPtr<CCmCallerQueue> GetCallerQueue();
};
