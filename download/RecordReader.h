#pragma once

#include "download/ContainerFormat.h"
#include "fileop/FileOperation.h"

namespace cachefile_internal {

/// How the read of a record of fixed size ended.
struct tagRecordRead {
    enum End {
        End_Whole,       ///< the record was read
        End_ReadFailed,  ///< lReadResult is the code of the read
        End_CutOff,      ///< the file has only dwLength bytes of the record
        End_Malformed,   ///< the bytes could not be parsed
    };

    End aEnd = End_Whole;
    CmInt32 lReadResult = 0;
    CmUint32 dwLength = 0;

    /// 0, the code of the read, 4002 if the record is cut off, or 4006 if it is malformed.
    CmInt32 GetResult() const;
};

/// The trace text for each kind of failure. A number is appended to the first two.
struct tagRecordTexts {
    const char* lpReadFailed;
    const char* lpCutOff;
    const char* lpMalformed;
};

// Each function reads a record of its size at dwOffset and parses it. They work on the thread that
// reads the file, and trace nothing.
tagRecordRead ReadRecord(IFileOperation& aFile, CmUint32 dwOffset, tagQXFFileHeader& aHeader);
tagRecordRead ReadRecord(IFileOperation& aFile, CmUint32 dwOffset, tagEntryFileHeader& aHeader);

/// Traces a failed read of a container, with pObject as the object of the trace line. Returns the
/// code of aRead.
CmInt32 ReportRecord(const tagRecordRead& aRead, const tagRecordTexts& aTexts, const void* pObject);

}  // namespace cachefile_internal

using cachefile_internal::ReadRecord;
using cachefile_internal::ReportRecord;
using cachefile_internal::tagRecordRead;
using cachefile_internal::tagRecordTexts;
