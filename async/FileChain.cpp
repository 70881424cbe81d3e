#include "async/FileChain.h"

#include "async/FileThreadManager.h"
#include "platform/CmTraceLine.h"

namespace {

/// Large enough that a write costs little beside its bytes, and small enough that a host with
/// hundreds of open files gathers only some MiB in all. Recordings are written in such blocks.
constexpr CmUint32 c_dwBlockSize = 32768;

}  // namespace

CRefPtr<IFileOperation> CFileChain::Build(FileChainKind aKind, int bAsync,
                                          IFileOpStatus* pReceive) {
    CFileOperationFactory* const pFactory = CFileOperationFactory::Instance();
    CRefPtr<IFileOperation> pTop = pFactory->CreateLocalFile(aKind == FileChainKind::Download);
    if (pTop && bAsync) {
        CFileThreadManager* const pThreads = CFileThreadManager::Instance();
        const CRefPtr<ACmThread> pCallerThread = pThreads->GetCallerThread();
        if (!pCallerThread)
            TraceError(
                "CFileChain::Build->No caller thread: asynchronous files need the host's thread "
                "attached (CCmCallerThread::Attach) this=",
                pReceive);
        pTop = pFactory->CreateFileThreadProxy(pThreads->GetPrimaryNFSThread().Get(),
                                               pCallerThread.Get(), pTop.Get(), pReceive,
                                               CCacheFileManager::Link_Local);
    }
    const bool bBuffered =
        aKind == FileChainKind::WriteRecord || (aKind == FileChainKind::PlayRecord && bAsync);
    if (pTop && bBuffered) pTop = pFactory->CreateBufferDecorate(pTop.Get(), c_dwBlockSize);
    return pTop;
}
