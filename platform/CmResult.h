#pragma once

#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// Every result code of the library: X(code, name, text). The list is in the lowest layer because
/// event queues and threads return the same codes as files and handlers.
#define CACHEFILE_RESULT_CODES(X)                                                    \
    X(0, CACHE_OK, "success")                                                        \
    X(4001, CACHE_ERR_NOT_FOUND, "a file or a directory on the path does not exist") \
    X(4002, CACHE_ERR_BAD_CONTAINER,                                                 \
      "the downloaded recording is malformed or of an unknown kind")                 \
    X(4003, CACHE_ERR_DISK_FULL, "no space left on the device")                      \
    X(4004, CACHE_ERR_ACCESS_DENIED, "permission denied")                            \
    X(4005, CACHE_ERR_BAD_PATH, "the path to be created holds no backslash")         \
    X(4006, CACHE_ERR_FAILED, "the file operation failed")                           \
    X(4007, CACHE_ERR_NOT_OPEN, "no file is open")                                   \
    X(4008, CACHE_ERR_ALREADY_OPEN, "a downloaded recording is open already")        \
    X(4009, CACHE_ERR_INVALID_ARG, "an argument is not acceptable")                  \
    X(4010, CACHE_ERR_INVALID_STATE, "the state does not allow the operation")       \
    X(4011, CACHE_ERR_OUT_OF_MEMORY, "out of memory")                                \
    X(4012, CACHE_ERR_WRITE_DENIED, "permission denied for writing")                 \
    X(4013, CACHE_ERR_TRY_AGAIN, "too many bytes are pending; try again later")      \
    X(10001, CACHE_ERR_UNKNOWN_TAG, "unknown tag of a container entry")              \
    X(10011, CACHE_ERR_NO_ENTRY, "the lookup found nothing")

/// 0 is success. 10001 and 10011 are used only inside the library; no host receives them.
enum CacheFileResult : CmInt32 {
#define CACHEFILE_RESULT_ENUMERATOR(code, name, text) name = (code),
    CACHEFILE_RESULT_CODES(CACHEFILE_RESULT_ENUMERATOR)
#undef CACHEFILE_RESULT_ENUMERATOR
};

/// Returns the name of a code, for example "CACHE_ERR_DISK_FULL" for 4003, or "unknown" for a
/// number that is no code. The text is valid as long as the library is loaded. Any thread.
CACHEFILE_API const char* CacheFileResultName(CmInt32 lResult);

/// Returns a short description of a code in lower case, or "unknown result code". The text is valid
/// as long as the library is loaded. Any thread.
CACHEFILE_API const char* CacheFileResultText(CmInt32 lResult);
