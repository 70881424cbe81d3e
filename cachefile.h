#pragma once

/// Everything a host needs of the cache file library. README.md shows the first steps,
/// docs/recording.md the rules of writing.

#include "async/Shutdown.h"
#include "core/CacheFileManager.h"
#include "core/DataInfo.h"
#include "core/FileOpSink.h"
#include "platform/CmCallerThread.h"
#include "platform/CmResult.h"
#include "platform/CmTrace.h"
#include "writer/WriteFileHandler.h"
