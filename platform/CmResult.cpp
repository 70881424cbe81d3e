#include "platform/CmResult.h"

const char* CacheFileResultName(CmInt32 lResult) {
    switch (lResult) {
#define CACHEFILE_RESULT_CASE(code, name, text) \
    case code:                                  \
        return #name;
        CACHEFILE_RESULT_CODES(CACHEFILE_RESULT_CASE)
#undef CACHEFILE_RESULT_CASE
        default:
            return "unknown";
    }
}

const char* CacheFileResultText(CmInt32 lResult) {
    switch (lResult) {
#define CACHEFILE_RESULT_CASE(code, name, text) \
    case code:                                  \
        return text;
        CACHEFILE_RESULT_CODES(CACHEFILE_RESULT_CASE)
#undef CACHEFILE_RESULT_CASE
        default:
            return "unknown result code";
    }
}
