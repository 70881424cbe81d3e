#pragma once

/// The whole C++ interface of the library. In the source tree, README.md shows the first steps, and
/// docs/recording.md and docs/playing.md have the rules for hosts that write and read.

#include "async/Shutdown.h"
#include "core/CacheFileManager.h"
#include "core/DataInfo.h"
#include "core/FileOpSink.h"
#include "core/HandlerPtr.h"
#include "core/Version.h"
#include "download/ContainerFormat.h"
#include "download/ContainerIndex.h"
#include "download/ContainerWriter.h"
#include "platform/CmCallerThread.h"
#include "platform/CmResult.h"
#include "platform/CmTrace.h"
#include "player/PlayFileHandler.h"
#include "writer/WriteFileHandler.h"
