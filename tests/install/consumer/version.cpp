// Uses the other way to include the library. Checks that the headers, the library and the package
// have the same version.
#include <cachefile/cachefile.h>

#include <cstdio>
#include <cstring>

#if defined(EXPECT_STATIC) != defined(CACHEFILE_STATIC)
#error "the package does not pass CACHEFILE_STATIC on as it should"
#endif

int main() {
    std::printf("%s, number %lu, package %s\n", CacheFileVersion(),
                static_cast<unsigned long>(CacheFileVersionNumber()), PACKAGE_VERSION);
    return CacheFileVersionNumber() == CACHEFILE_VERSION_NUMBER &&
                   std::strcmp(CacheFileVersion(), PACKAGE_VERSION) == 0
               ? 0
               : 1;
}
