#pragma once

#include "download/ContainerWriter.h"
#include "fileop/SystemError.h"

// How failures of the container writer are traced and kept for its host.

namespace cachefile_internal {

constexpr char c_szShortConf[] = "a conf stream needs the 72 bytes of its header";
constexpr char c_szTooManyStreams[] = "a container holds at most 1,048,576 streams";

/// Traces a failed system call and returns its result code. errno has to be that of the call; it
/// has the same value afterwards.
CmInt32 ReportSystemError(const void* pObject, const char* lpWhat, const CCmString& strPath,
                          FileAction aAction);

/// Keeps why an operation fails, and returns lResult. Throws std::bad_alloc.
CmInt32 KeepFailure(CContainerWriter::tagFailure& aFailure, const CCmString& strFile,
                    const char* lpReason, int nErrno, CmInt32 lResult);

}  // namespace cachefile_internal

using cachefile_internal::c_szShortConf;
using cachefile_internal::c_szTooManyStreams;
using cachefile_internal::KeepFailure;
using cachefile_internal::ReportSystemError;
