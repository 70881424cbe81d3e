#pragma once

#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// Ends asynchronous mode. Waits until the worker thread has written everything that was accepted,
/// and ends the thread. If this is called on the caller thread, it then runs callbacks until none
/// is pending. If a sync interval is set, it syncs all unsynced bytes after the last write and ends
/// the interval; a host that records again sets it again. Always returns 0.
///
/// A host closes or destroys its handlers first. It calls this on the thread that drives them,
/// before the process ends or the library is unloaded. On Windows this is required, because the
/// library cannot end the worker later. It may be called again, also inside a callback. If there is
/// no worker, it starts none. While it runs, asynchronous opens return CACHE_ERR_INVALID_STATE; a
/// later open starts a new worker. An exception of a callback propagates after the worker has
/// ended.
CACHEFILE_API CmInt32 CacheFileShutdown();
