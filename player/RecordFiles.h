#pragma once

#include "core/DescriberTable.h"
#include "fileop/FileOperation.h"
#include "player/PlayFileHandler.h"

/// The open record files of a play handler, in the order of opening. Apart from the handler's
/// header, so that hosts need none of the headers that this one includes.
struct CPlayFileHandler::tagRecordFiles {
    struct tagRecordFile {
        tagFileDescriber aDescriber;
        CRefPtr<IFileOperation> pFile;
    };

    CDescriberTable<tagRecordFile> aTable;
};
