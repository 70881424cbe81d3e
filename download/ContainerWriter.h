#pragma once

#include <cstdint>
#include <memory>

#include "download/ContainerFormat.h"
#include "platform/CmCallable.h"
#include "platform/CmExport.h"
#include "platform/CmTypes.h"

class CContainerPacker;

/// Packs the streams of a recording into a container that the play handler can open. An addition
/// to the library: recorders do not need it.
///
/// A host adds the streams and then calls Write, which writes header, index and data. It may then
/// add more streams and write again. One object is for one thread at a time; it works inside the
/// call and needs no caller thread. It never throws, except what the callback of Write throws. Each
/// refusal is traced with its reason.
///
/// The entries are in the order in which the streams were added. The data has no gaps, and empty
/// streams are at the end of the file. A stream is read back byte for byte, except for the two
/// fields that SetFileHeader sets.
class CACHEFILE_API CContainerWriter {
 public:
    CContainerWriter();
    ~CContainerWriter();
    CContainerWriter(const CContainerWriter&) = delete;
    CContainerWriter& operator=(const CContainerWriter&) = delete;

    /// Sets the layout of the index: Index_Packed (the default) or Index_Chained. Returns 4009 for
    /// other values.
    CmInt32 SetIndexType(CmUint32 dwIndexType);

    /// Sets file version and CB time stamp in the entry file header at the start of the conf stream
    /// (type 100, kind 2, id 100). If there is no such stream, Write adds one at the end of the
    /// index that holds the header alone. Without this call the conf stream is written unchanged
    /// and is not required.
    void SetFileHeader(CmUint32 dwFileVersion, CmUint32 dwCBTimeStamp);

    /// Adds a stream by its describer. The bytes are copied; lpData may be null if dwLength is 0.
    /// A failure adds nothing. 4009: no tag has this type and kind, no 32-bit n gives this id, a
    /// stream with the same type, id and kind was added before, or it is a conf stream of fewer
    /// than 72 bytes. 4011: out of memory, or more streams than a reader keeps (1,048,576).
    CmInt32 AddStream(const tagFileDescriber& aDescriber, const unsigned char* lpData,
                      CmUint32 dwLength);

    /// Adds a stream by its describer. Its bytes are those of a file when Write runs. strPath is in
    /// the library's form and the system's encoding, like the path of a record file. Codes as
    /// above. Write reports a file that is missing or too short.
    CmInt32 AddStreamFile(const tagFileDescriber& aDescriber, const CCmString& strPath);

    /// The same for a file that may still grow: the stream is its first dwLength bytes. Write reads
    /// no byte after them. 4009 also for a conf stream with dwLength below 72.
    CmInt32 AddStreamFile(const tagFileDescriber& aDescriber, const CCmString& strPath,
                          CmUint32 dwLength);

    /// The same two by tag, entry id and extra value. 4009 for an unknown tag.
    CmInt32 AddTagStream(std::uint16_t wTag, CmUint32 dwEntryID, CmUint32 dwExtraInfo,
                         const unsigned char* lpData, CmUint32 dwLength);
    CmInt32 AddTagStreamFile(std::uint16_t wTag, CmUint32 dwEntryID, CmUint32 dwExtraInfo,
                             const CCmString& strPath);

    /// Writes the container to strPath (UTF-8, in the library's form; its directory must exist). An
    /// existing file of that name is replaced.
    ///
    /// The bytes are first written to a new file in the same directory. Its name is strPath with
    /// ".partial" appended, or ".partial2" and so on if that name exists. The file is synced to the
    /// disk and then renamed to strPath. Last the directory is synced, so that the name reaches the
    /// disk too. A failure before the rename removes the new file and leaves what strPath was. If
    /// only the sync of the directory fails, its code is returned and the container stays.
    ///
    /// 4009: the container would be larger than 4 GiB - 1, or a conf file is shorter than 72 bytes.
    /// 4010: no stream was added. 4001, 4003, 4004, 4006, 4012: a file could not be read or
    /// written, a source changed its size while it was read or is shorter than its given length, or
    /// the path is empty. 4011: out of memory, or one stream too many together with the conf stream
    /// of SetFileHeader.
    CmInt32 Write(const CCmString& strPath);

    /// Receives how many bytes of the streams are written, and how many there are in all. Returns
    /// true to continue and false to cancel.
    using Progress = CCmCallable<bool(std::uint64_t qwDone, std::uint64_t qwTotal)>;

    /// The same with a callback, which may be empty. Write calls it on the calling thread, with no
    /// lock held: once for each stream while the sizes are looked up (both numbers are 0 then),
    /// before the bytes of each stream, after each 64 KiB and at the end of them, and before and
    /// after the sync of the file. It is not called after the rename.
    ///
    /// If it returns false, Write stops, removes the new file, leaves what strPath was, and returns
    /// 4010. The reason in GetLastFailure is then "packing was cancelled". It must not call this
    /// object. An exception that it throws propagates after the new file is removed; only
    /// std::bad_alloc gives 4011 instead.
    CmInt32 Write(const CCmString& strPath, const Progress& aProgress);

    /// Why an operation failed. The reason completes a message to the user.
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
    tagFailure m_failure;
    const std::unique_ptr<CContainerPacker> m_pPacker;  // null without memory: calls return 4011
};
