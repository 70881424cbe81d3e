#pragma once

#include <cstdio>
#include <memory>

#include "platform/CmFile.h"

struct CloseFileStream {
    void operator()(std::FILE* pStream) const { CmFile::Close(pStream); }
};

/// Owns a stream of CmFile::Open. Closing it this way does not report failures.
using FileStreamPtr = std::unique_ptr<std::FILE, CloseFileStream>;
