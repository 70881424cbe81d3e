#pragma once

#include <memory>

#include "download/ContainerFormat.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

/// Packs the streams of a recording into a container that the play handler can open. An addition
/// to the library: recorders don't need it.
///
/// A host adds the streams and then calls Write, which lays out header, index and data. It may go
/// on adding and write again. One object is for one thread at a time; it works inside the call and
/// needs no caller thread. Nothing is thrown; each refusal is traced with its reason.
///
/// The entries stand in the order of adding, data without gaps, empty streams at the file's end. A
/// stream is read back byte for byte, but for the two fields that SetFileHeader sets.
class CACHEFILE_API CContainerWriter {
 public:
    CContainerWriter();
    ~CContainerWriter();
    CContainerWriter(const CContainerWriter&) = delete;
    CContainerWriter& operator=(const CContainerWriter&) = delete;

    /// How the entries are laid out: Index_Packed (the default) or Index_Chained. 4009 for others.
    CmInt32 SetIndexType(CmUint32 dwIndexType);

    /// Sets file version and CB time stamp in the entry file header at the start of the conf stream
    /// (type 100, kind 2, id 100). Without such a stream one is made that holds the header alone,
    /// at the end of the index. Without this call the conf stream is written as it is, and there
    /// need be none.
    void SetFileHeader(CmUint32 dwFileVersion, CmUint32 dwCBTimeStamp);

    /// Adds a stream by its describer. The bytes are copied; lpData may be null for none.
    /// 4009: no tag has this type and kind, no 32-bit n gives this id, a stream with the same type,
    /// id and kind is there already, or it is a conf stream of fewer than 72 bytes. 4011: no
    /// memory, or more streams than a reader keeps (1,048,576). Nothing is added then.
    CmInt32 AddStream(const tagFileDescriber& aDescriber, const unsigned char* lpData,
                      CmUint32 dwLength);

    /// Adds a stream by its describer whose bytes are those of a file when Write runs. strPath is
    /// in the library's form and the system's encoding, like the path of a record file. Codes as
    /// above; that the file is missing or too short shows when it is written.
    CmInt32 AddStreamFile(const tagFileDescriber& aDescriber, const CCmString& strPath);

    /// The same two by tag, entry id and extra value. 4009 for an unknown tag.
    CmInt32 AddTagStream(std::uint16_t wTag, CmUint32 dwEntryID, CmUint32 dwExtraInfo,
                         const unsigned char* lpData, CmUint32 dwLength);
    CmInt32 AddTagStreamFile(std::uint16_t wTag, CmUint32 dwEntryID, CmUint32 dwExtraInfo,
                             const CCmString& strPath);

    /// Writes the container to strPath (UTF-8, in the library's form; its directory has to exist)
    /// in place of what has that name. The bytes first go to a new file beside it, strPath with
    /// ".partial" (or ".partial2" and so on, if that is taken) behind it, which gets the name when
    /// all of them have reached the disk and is removed on failure. Last the directory is synced,
    /// so that the name reaches the disk too; if that fails the code is returned, and the new file
    /// keeps its name.
    /// 4009: it would be larger than 4 GiB - 1, or a conf file is shorter than 72 bytes. 4010: no
    /// stream. 4001, 4003, 4004, 4006, 4012: a file could not be read or written, or a source
    /// changed its size meanwhile; an empty path. 4011: no memory, or no room left for the conf
    /// stream that SetFileHeader asks for.
    CmInt32 Write(const CCmString& strPath);

    /// Why an operation failed, in words that complete a message to the user.
    struct tagFailure {
        CCmString strFile;  ///< the source or the container, as it was given; may be empty
        const char* lpReason =
            "";          ///< "it has grown while it was packed"; lives as long as the library
        int nErrno = 0;  ///< the system's own reason, or 0 if it gave none
    };

    /// The failure of the last AddStream, AddStreamFile, AddTagStream, AddTagStreamFile or Write.
    /// The reason is empty if that call succeeded or there was none. Valid until the next call.
    const tagFailure& GetLastFailure() const;

 private:
    class Impl;

    CmInt32 AddDescribed(const tagFileDescriber& aDescriber, const unsigned char* lpData,
                         CmUint32 dwLength, const CCmString* pPath);
    CmInt32 Add(const tagMRFD& aEntry, const unsigned char* lpData, CmUint32 dwLength,
                const CCmString* pPath);

    CmInt32 Refuse(const char* lpReason, CmInt32 lResult);

    tagFailure m_failure;
    const std::unique_ptr<Impl> m_pImpl;  // null without memory: everything answers 4011
};
