#pragma once

/// CACHEFILE_API marks the names that the shared library exports. All others are hidden.
/// CACHEFILE_BUILDING is defined while the library itself is compiled. CACHEFILE_STATIC is defined
/// if the library is static and exports nothing.
#if defined(CACHEFILE_STATIC)
#define CACHEFILE_API
#elif defined(_WIN32)
#if defined(CACHEFILE_BUILDING)
#define CACHEFILE_API __declspec(dllexport)
#else
#define CACHEFILE_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define CACHEFILE_API __attribute__((visibility("default")))
#else
#define CACHEFILE_API
#endif

/// CACHEFILE_LOCAL keeps a member of an exported class inside the library.
#if defined(__GNUC__) && !defined(_WIN32)
#define CACHEFILE_LOCAL __attribute__((visibility("hidden")))
#else
#define CACHEFILE_LOCAL
#endif
