#pragma once

#include "platform/CmExport.h"

/// The version of the library that a host is compiled against. CMakeLists.txt reads it from here,
/// and hosts in C include it too.
///
/// A greater major number may break hosts, a greater minor number only adds to the interface, and
/// a greater patch number changes no interface (docs/release.md).
#define CACHEFILE_VERSION_MAJOR 1
#define CACHEFILE_VERSION_MINOR 0
#define CACHEFILE_VERSION_PATCH 0

/// The same as one number, for comparisons: 1.2.3 is 10203.
#define CACHEFILE_VERSION_NUMBER \
    (CACHEFILE_VERSION_MAJOR * 10000 + CACHEFILE_VERSION_MINOR * 100 + CACHEFILE_VERSION_PATCH)

#ifdef __cplusplus
#include "platform/CmTypes.h"

/// The version of the library that the process has loaded, as a CACHEFILE_VERSION_NUMBER. It may be
/// newer than the headers the host was compiled with. Any thread.
CACHEFILE_API CmUint32 CacheFileVersionNumber();

/// The same as text, such as "1.2.3". The text is a constant of the library. Any thread.
CACHEFILE_API const char* CacheFileVersion();
#endif
