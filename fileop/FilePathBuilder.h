#pragma once

#include "platform/CmPlace.h"
#include "platform/CmTypes.h"

/// Creates the directories of a path.
class CFilePathBuilder {
 public:
    /// Creates every missing directory of strPath: each prefix that ends with a backslash, except
    /// the first one, which is the root (a drive, ".\" or "\"). The file's name after the last
    /// backslash is ignored. Returns 0 if all directories exist afterwards, CACHE_ERR_BAD_PATH for
    /// a path without a backslash, or the reason why one could not be created (4001, 4003, 4004,
    /// 4006); those created before it stay. Several threads may call it at once. Throws
    /// std::bad_alloc. A relative path is relative to the current directory, or to aPlace.
    static CmInt32 BuildPath(const CCmString& strPath, const CmPlace& aPlace = {});
};
