#pragma once

#include <cstdio>
#include <memory>

#include "platform/CmFile.h"

namespace cachefile_internal {

struct CloseFileStream {
    void operator()(std::FILE* pStream) const { CmFile::Close(pStream); }
};

/// Owns a stream of CmFile::Open. Closing it this way does not report failures.
using FileStreamPtr = std::unique_ptr<std::FILE, CloseFileStream>;

}  // namespace cachefile_internal

using cachefile_internal::FileStreamPtr;
