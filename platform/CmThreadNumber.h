#pragma once

#include "platform/CmTypes.h"

/// The library's own thread numbers. They identify the owner of an event queue. Unlike the system's
/// identifiers they are never reused for another thread. Any thread.

/// Returns the number of the calling thread, which is never 0.
CmUint32 CmCurrentThreadNumber();

/// Returns a new number, for a thread that is about to be started.
CmUint32 CmNewThreadNumber();

/// Sets the number of the calling thread, which CmNewThreadNumber has returned. A new thread calls
/// it first.
void CmSetCurrentThreadNumber(CmUint32 dwNumber);
