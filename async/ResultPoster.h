#pragma once

#include "async/ResultEvents.h"
#include "platform/CmThread.h"

constexpr CmInt32 c_lPostOption = 1;  ///< of all events that the proxy posts

/// Posts the results of a file to its handler, on the caller thread.
///
/// Lives on the stack for one call. It holds no references, because its creator holds them. Any
/// thread may create one. Each function returns null if it has posted the result. Otherwise it
/// traces nothing and returns the name of what is missing, "pQueue" or "pStatusEvent", for the
/// trace of the caller.
class CResultPoster {
 public:
    CResultPoster(ACmThread* pCallerThread, IFileOpStatus* pReceive)
        : m_pCallerThread(pCallerThread), m_pReceive(pReceive) {}

    const char* PostStatus(const tagFileStatus& aStatus) const;
    /// Owns lpBuffer (from array new) and frees it if it cannot be posted.
    const char* PostData(unsigned char* lpBuffer, CmUint32 dwLength,
                         const tagDataInfo& aDataInfo) const;
    const char* PostSynced(CmUint32 dwHandle, CmInt32 lResult) const;
    const char* PostLowSpace(std::uint64_t qwFree) const;

 private:
    template <class Event, class... Arguments>
    const char* Post(const Arguments&... aArguments) const;

    ACmThread* const m_pCallerThread;
    IFileOpStatus* const m_pReceive;
};
