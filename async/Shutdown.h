#pragma once

#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// Ends asynchronous mode: waits until the worker thread has written everything that was accepted,
/// ends it, and then, on the caller thread, runs callbacks until none is left. If a sync interval
/// is set, everything unsynced is synced after the last write, and the interval ends; a host that
/// records again sets it again. Always returns 0.
///
/// A host closes or destroys its handlers first. It calls this on the thread that drives them,
/// before the process ends or the library is unloaded; on Windows it has to, because the library
/// cannot do it later there. It may be called again, also from inside a callback. If there is no
/// worker, none is started. While it runs, asynchronous opens return CACHE_ERR_INVALID_STATE; a
/// later one starts a new worker. A callback's exception propagates, after the worker has ended.
CACHEFILE_API CmInt32 CacheFileShutdown();
