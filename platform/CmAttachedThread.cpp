#include "platform/CmAttachedThread.h"

#include "platform/CmResult.h"

CCmAttachedThread::CCmAttachedThread(CCmCallerQueue* pQueue)
    : CCmQueuedThread(CmCurrentThreadNumber()) {
    SetQueue(pQueue);
}

CmInt32 CCmAttachedThread::Stop(void* /*pTimeout*/) { return CACHE_ERR_INVALID_STATE; }

CmInt32 CCmAttachedThread::Join() { return CACHE_ERR_INVALID_STATE; }

// The constructor takes no other kind of queue, so both casts are right.

CRefPtr<CCmCallerQueue> CCmAttachedThread::Detach() {
    return static_cast<CCmCallerQueue*>(TakeQueue().Get());
}

CRefPtr<CCmCallerQueue> CCmAttachedThread::GetCallerQueue() {
    return static_cast<CCmCallerQueue*>(GetEventQueue().Get());
}
