#pragma once

#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// Ends asynchronous mode: lets the worker thread write everything that was accepted, ends it, and
/// then, on the caller thread, runs the callbacks that wait until none is left. Always 0.
///
/// A host closes or destroys its handlers first, and calls this on the thread that drives them
/// before the process ends or the library is unloaded; on Windows it has to, since nothing can do
/// it there later. It may be called again, from inside a callback too. Without a worker it starts
/// none. Asynchronous opens while it runs get CACHE_ERR_INVALID_STATE; a later one starts a new
/// worker. A callback's exception passes through after the worker has ended.
CACHEFILE_API CmInt32 CacheFileShutdown();
