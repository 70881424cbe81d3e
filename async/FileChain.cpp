#include "async/FileChain.h"

#include "async/FileThreadManager.h"
#include "platform/CmTraceLine.h"

namespace {

/// With this size a system call costs little compared with the copying of its bytes, and a host
/// with hundreds of open files gathers only some MiB in total.
constexpr CmUint32 c_dwBlockSize = 32768;

}  // namespace

CRefPtr<IFileOperation> CFileChain::Build(FileChainKind aKind, int bWrite, int bAsync,
                                          IFileOpStatus* pReceive) {
    CFileOperationFactory* const pFactory = CFileOperationFactory::Instance();
    CRefPtr<IFileOperation> pTop = pFactory->CreateLocalFile(aKind == FileChainKind::Download);
    if (pTop && bWrite && !pTop->CreateLedger()) return nullptr;
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
