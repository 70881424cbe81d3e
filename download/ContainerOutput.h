#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "download/ContainerWriter.h"
#include "download/PackSource.h"
#include "download/PartialFile.h"

/// One container while it is written: lays out header, index and data, and writes them.
///
/// Lives on the stack of CContainerWriter::Write, on the calling thread. Plan, callback and failure
/// outlive it. A failure is traced, kept in aFailure, and its code is returned; the unfinished file
/// is removed. Run throws std::bad_alloc and what the callback throws.
class CContainerOutput {
 public:
    CContainerOutput(const CCmString& strPath, const tagPackPlan& aPlan,
                     const CContainerWriter::Progress& aProgress,
                     CContainerWriter::tagFailure& aFailure);

    /// Writes the container; once for an object.
    CmInt32 Run();

 private:
    /// Where the bytes of a stream are in the container.
    struct tagPlace {
        CmUint32 dwOffset;
        CmUint32 dwSize;
    };

    CmInt32 LayOut();
    CmInt32 AddPlace(const tagPackStream& aStream, std::uint64_t& qwEnd);
    CmInt32 WriteParts();
    CmInt32 WriteFileHeader();
    CmInt32 WriteEntry(std::size_t nIndex);
    CmInt32 WriteData(std::size_t nIndex);
    CmInt32 CopyBytes(CPackSource& aSource, std::size_t nIndex);
    CmInt32 ReportShortRead(const CPackSource& aSource, const tagPackStream& aStream);
    CmInt32 ReportProgress();
    /// Passes on the code of a call on the container's file; keeps a failure and its errno.
    CmInt32 Written(CmInt32 lResult);
    CmInt32 KeepSourceFailure(const tagPackStream& aStream, const char* lpReason, int nErrno,
                              CmInt32 lResult);

    const tagPackPlan& m_plan;
    const CContainerWriter::Progress& m_progress;
    CContainerWriter::tagFailure& m_failure;
    CPartialFile m_file;
    std::vector<tagPlace> m_vecPlaces;  // of each stream
    std::vector<unsigned char> m_vecBlock;
    CmUint32 m_dwFileSize = 0;
    std::uint64_t m_qwTotal = 0;  // bytes of all streams; 0 until they are laid out
    std::uint64_t m_qwDone = 0;   // of these
};
