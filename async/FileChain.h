#pragma once

#include "core/FileOpSink.h"
#include "fileop/FileOperation.h"

namespace cachefile_internal {

/// The purpose of a chain of file operations, which determines its links:
///
///     kind          synchronous            asynchronous
///     WriteRecord   buffer, local file     buffer, proxy, local file
///     PlayRecord    local file             buffer, proxy, local file
///     Download      local file (UTF-8)     proxy, local file (UTF-8)
enum class FileChainKind { WriteRecord, PlayRecord, Download };

}  // namespace cachefile_internal

using cachefile_internal::FileChainKind;

/// Creates all chains of the handlers. It has no state. The thread that drives the handlers calls
/// it.
class CFileChain {
 public:
    /// Builds the chain of one file. The handler pReceive receives the results if the chain is
    /// asynchronous. bWrite is that of the Open that follows. An asynchronous chain uses the
    /// current caller thread and the R/W thread, which is started if necessary. If one of them is
    /// missing, the chain is still built, and its Open returns CACHE_ERR_INVALID_STATE; a missing
    /// caller thread is traced. Returns null if there is no memory for one of the links.
    static CRefPtr<IFileOperation> Build(FileChainKind aKind, int bWrite, int bAsync,
                                         IFileOpStatus* pReceive);
};
