#pragma once

#include "platform/CmPlace.h"
#include "platform/CmTypes.h"

/// Creates the directories of a path.
class CFilePathBuilder {
 public:
    /// Creates every missing directory of strPath: each prefix that ends with a backslash, except
    /// the first one, the root (a drive, ".\" or "\"), which is taken as it is. The
    /// file's name after the last backslash is not looked at. Returns 0 when all of them exist,
    /// CACHE_ERR_BAD_PATH for a path without a backslash, or why one could not be made (4001, 4003,
    /// 4004, 4006); those made before it stay. Any thread, several at once; throws std::bad_alloc.
    /// A relative path begins in the current directory, or in aPlace.
    static CmInt32 BuildPath(const CCmString& strPath, const CmPlace& aPlace = {});
};
