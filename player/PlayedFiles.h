#pragma once

#include "core/DescriberTable.h"
#include "fileop/FileOperation.h"

namespace cachefile_internal {

/// The open record files of a play handler, in the order of opening. They are not in the handler's
/// header, so that hosts do not include the headers that are needed here.
struct tagPlayedFiles {
    struct tagRecordFile {
        tagFileDescriber aDescriber;
        CRefPtr<IFileOperation> pFile;
    };

    CDescriberTable<tagRecordFile> aTable;
};

}  // namespace cachefile_internal
