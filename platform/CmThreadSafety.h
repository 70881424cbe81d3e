#pragma once

/// Annotations that state which mutex guards what. clang checks them with -Wthread-safety; for
/// other compilers they are empty.

#if defined(__clang__)
#define CM_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define CM_THREAD_SAFETY(attribute)
#endif

#define CM_CAPABILITY CM_THREAD_SAFETY(capability("mutex"))
#define CM_SCOPED_CAPABILITY CM_THREAD_SAFETY(scoped_lockable)
#define CM_ACQUIRE(...) CM_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define CM_RELEASE(...) CM_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// For a function that takes locks which another one releases.
#define CM_NO_LOCK_ANALYSIS CM_THREAD_SAFETY(no_thread_safety_analysis)
#define CM_GUARDED_BY(mutex) CM_THREAD_SAFETY(guarded_by(mutex))
