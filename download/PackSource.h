#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "core/DescriberTable.h"
#include "download/ContainerFormat.h"
#include "download/FileStreamPtr.h"

/// A stream to be packed. Its bytes are those of the file strPath, or the first *dwLength of them;
/// or strBytes if strPath is empty.
struct tagPackStream {
    tagFileDescriber aDescriber;
    tagMRFD aEntry;
    CCmString strBytes;
    CCmString strPath;
    std::optional<CmUint32> dwLength = {};

    bool IsConf() const { return aEntry.wTag == c_wConfTag; }
};

/// The two fields that the writer sets in the header of the conf stream.
struct tagPackHeader {
    CmUint32 dwFileVersion;
    CmUint32 dwCBTimeStamp;
};

/// What the host has added to a container writer so far.
struct tagPackPlan {
    CDescriberTable<tagPackStream> aStreams;
    CmUint32 dwIndexType = Index_Packed;
    std::optional<tagPackHeader> aHeader;
};

/// Reads the bytes of one stream from their beginning.
///
/// Lives on the stack of CContainerWriter::Write, on the calling thread; the stream outlives it.
/// Open and GetSize trace a failed call, return its code and leave its reason in errno.
class CPackSource {
 public:
    explicit CPackSource(const tagPackStream& aStream) : m_stream(aStream) {}

    CmInt32 Open();

    /// The number of bytes to be packed. Call it before the first Read: it moves the position of
    /// the file.
    CmInt32 GetSize(std::uint64_t& qwSize);

    /// Returns how many bytes were read. Fewer than nLength mean the end, where IsAtEnd returns
    /// true, or a failure with its errno.
    std::size_t Read(unsigned char* lpBuffer, std::size_t nLength);
    bool IsAtEnd() const { return m_bEnd; }

 private:
    const tagPackStream& m_stream;
    FileStreamPtr m_pStream;      // null for bytes in memory
    std::size_t m_nPosition = 0;  // of the next byte in memory
    bool m_bEnd = false;
};
