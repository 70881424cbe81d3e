#pragma once

#include "core/FileOpSink.h"
#include "fileop/FileOperation.h"

/// What a chain of file operations is for, which decides its links:
///
///     kind          synchronous            asynchronous
///     WriteRecord   buffer, local file     buffer, proxy, local file
///     PlayRecord    local file             buffer, proxy, local file
///     Download      local file (UTF-8)     proxy, local file (UTF-8)
enum class FileChainKind { WriteRecord, PlayRecord, Download };

/// Builds the chain of one file of a handler, which receives the results of an asynchronous one.
/// An asynchronous chain uses the thread attached at this moment and the R/W thread, which it
/// starts if need be; without either the chain is built all the same and its Open answers
/// CACHE_ERR_INVALID_STATE. Null if there is no memory for one of the links.
CRefPtr<IFileOperation> BuildFileChain(FileChainKind aKind, int bAsync, IFileOpStatus* pReceive);
