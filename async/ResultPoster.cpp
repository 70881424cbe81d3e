#include "async/ResultPoster.h"

#include <new>

/// The result of PostEvent is ignored. The queue owns the event even if it refuses it, and a caller
/// thread that refuses events has no other way to receive the result.
template <class Event, class... Arguments>
const char* CResultPoster::Post(const Arguments&... aArguments) const {
    const CRefPtr<ICmEventQueue> pQueue = m_pCallerThread->GetEventQueue();
    if (!pQueue) return "pQueue";
    ICmEvent* const pEvent = new (std::nothrow) Event(m_pReceive, aArguments...);
    if (!pEvent) return "pStatusEvent";
    pQueue->PostEvent(pEvent, c_lPostOption);
    return nullptr;
}

const char* CResultPoster::PostStatus(const tagFileStatus& aStatus) const {
    return Post<CFileStatusEvent>(aStatus);
}

const char* CResultPoster::PostData(unsigned char* lpBuffer, CmUint32 dwLength,
                                    const tagDataInfo& aDataInfo) const {
    const char* const lpMissing = Post<CFileDataEvent>(lpBuffer, dwLength, aDataInfo);
    if (lpMissing) delete[] lpBuffer;
    return lpMissing;
}

const char* CResultPoster::PostSynced(CmUint32 dwHandle, CmInt32 lResult) const {
    return Post<CFileSyncedEvent>(dwHandle, lResult);
}

const char* CResultPoster::PostLowSpace(std::uint64_t qwFree) const {
    return Post<CLowSpaceEvent>(qwFree);
}
