#pragma once

#include "core/FileOpSink.h"
#include "fileop/FileOperation.h"

namespace cachefile_internal {

/// What a chain of file operations is for, which decides its links:
///
///     kind          synchronous            asynchronous
///     WriteRecord   buffer, local file     buffer, proxy, local file
///     PlayRecord    local file             buffer, proxy, local file
///     Download      local file (UTF-8)     proxy, local file (UTF-8)
enum class FileChainKind { WriteRecord, PlayRecord, Download };

}  // namespace cachefile_internal

using cachefile_internal::FileChainKind;

/// The one place where chains are put together. It has no state; the thread that drives the
/// handlers calls it.
class CFileChain {
 public:
    /// Builds the chain of one file of the handler pReceive, which receives the results of an
    /// asynchronous one. An asynchronous chain uses the thread attached at this moment and the R/W
    /// thread, which it starts if need be; without either the chain is built all the same and its
    /// Open returns CACHE_ERR_INVALID_STATE. A missing caller thread is traced, with the handler's
    /// address. Returns null if there is no memory for one of the links.
    static CRefPtr<IFileOperation> Build(FileChainKind aKind, int bAsync, IFileOpStatus* pReceive);
};
