#include <cachefile/cachefile_c.h>

/* A host that uses nothing but the library: it is linked without a C runtime, by a compiler that
 * uses the import library of the C interface. Its exit code is 0 if the library has the version of
 * the headers and refuses a null pointer as documented. */
int bare_main(void) {
    if (cachefile_version_number() != CACHEFILE_VERSION_NUMBER) return 1;
    if (cachefile_set_home_dir(0) != CACHEFILE_ERR_INVALID_ARG) return 2;
    return cachefile_lost_bytes() == 0 ? 0 : 3;
}
