#include "core/Version.h"

#define VERSION_TEXT_OF(major, minor, patch) #major "." #minor "." #patch
#define VERSION_TEXT(major, minor, patch) VERSION_TEXT_OF(major, minor, patch)

CmUint32 CacheFileVersionNumber() { return CACHEFILE_VERSION_NUMBER; }

const char* CacheFileVersion() {
    return VERSION_TEXT(CACHEFILE_VERSION_MAJOR, CACHEFILE_VERSION_MINOR, CACHEFILE_VERSION_PATCH);
}
