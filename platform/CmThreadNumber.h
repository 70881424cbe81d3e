#pragma once

#include "platform/CmTypes.h"

/// The library's own thread numbers. They name the owner of an event queue, and unlike the system's
/// identifiers they are never reused, so a number never comes to name another thread. Any thread.

/// The number of the calling thread. Never 0.
CmUint32 CmCurrentThreadNumber();

/// A number that no thread has yet, for a thread that is about to be started.
CmUint32 CmNewThreadNumber();

/// Gives the calling thread a number from CmNewThreadNumber. The first thing a new thread does.
void CmSetCurrentThreadNumber(CmUint32 dwNumber);
