#include "download/ContainerWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <new>
#include <vector>

#include "core/DescriberTable.h"
#include "fileop/SystemError.h"
#include "platform/CmFile.h"
#include "platform/CmResult.h"
#include "platform/CmTraceLine.h"

namespace {

constexpr std::uint64_t c_qwMaxSize = 0xFFFFFFFF;
constexpr std::size_t c_nBlockSize = 65536;

// Reasons of failures, as GetLastFailure reports them.
constexpr char c_szGrew[] = "it has grown while it was packed";
constexpr char c_szShrank[] = "it has become shorter while it was packed";
constexpr char c_szUnreadable[] = "it could not be read";
constexpr char c_szTooLarge[] = "with it the container would be larger than 4 GiB - 1 bytes";
constexpr char c_szShortConf[] = "a conf stream needs the 72 bytes of its header";
constexpr char c_szTooManyStreams[] = "a container holds at most 1,048,576 streams";
constexpr char c_szNoTag[] = "no container tag has its type, kind and id";
constexpr char c_szNoMemory[] = "there is not enough memory";

void Put16(unsigned char* lpTo, std::uint16_t wValue) {
    lpTo[0] = static_cast<unsigned char>(wValue);
    lpTo[1] = static_cast<unsigned char>(wValue >> 8);
}

void Put32(unsigned char* lpTo, CmUint32 dwValue) {
    Put16(lpTo, static_cast<std::uint16_t>(dwValue));
    Put16(lpTo + 2, static_cast<std::uint16_t>(dwValue >> 16));
}

/// Returns with errno as it was.
CmInt32 SystemFailure(const void* pObject, const char* lpWhat, const CCmString& strPath,
                      FileAction aAction) {
    const int nErrno = errno;
    TraceError("CContainerWriter::Write->", lpWhat, " error=", nErrno, " file=", strPath,
               " this=", pObject);
    const CmInt32 lResult = SystemErrorToResult(nErrno, aAction);
    errno = nErrno;
    return lResult;
}

struct CloseStream {
    void operator()(std::FILE* pStream) const { CmFile::Close(pStream); }
};
using StreamPtr = std::unique_ptr<std::FILE, CloseStream>;

/// A file that gets its name when it is complete. Until then its bytes lie in a file of its own
/// beside it, under the first free name of the form "NAME.partial", "NAME.partial2" and so on; what
/// is not finished is removed.
class CPartialFile {
 public:
    explicit CPartialFile(const CCmString& strPath) : m_strPath(strPath) {
        m_vecBlock.reserve(c_nBlockSize);
    }
    ~CPartialFile() {
        if (!m_bCreated) return;
        m_pStream.reset();
        CmFile::RemoveUtf8File(m_strPartial);
    }
    CPartialFile(const CPartialFile&) = delete;
    CPartialFile& operator=(const CPartialFile&) = delete;

    const CCmString& GetPath() const { return m_strPath; }

    CmInt32 Open() {
        m_strPartial = m_strPath + ".partial";
        for (int nTry = 2; !TryOpen(); ++nTry) {
            if (errno != EEXIST || nTry > c_nMostPartials)
                return SystemFailure(this, "Open file", m_strPartial, FileAction::OpenForWriting);
            m_strPartial = m_strPath + ".partial" + std::to_string(nTry);
        }
        m_bCreated = true;
        return CACHE_OK;
    }

    CmInt32 Put(const unsigned char* lpData, std::size_t nLength) {
        while (nLength > 0) {
            const std::size_t nPart = std::min(nLength, c_nBlockSize - m_vecBlock.size());
            m_vecBlock.insert(m_vecBlock.end(), lpData, lpData + nPart);
            lpData += nPart;
            nLength -= nPart;
            if (m_vecBlock.size() < c_nBlockSize) break;
            const CmInt32 lResult = Drain();
            if (lResult != CACHE_OK) return lResult;
        }
        return CACHE_OK;
    }

    /// Writes what is left, has all of it reach the disk and gives the file its name.
    CmInt32 Finish() {
        const CmInt32 lResult = Drain();
        if (lResult != CACHE_OK) return lResult;
        if (CmFile::Sync(m_pStream.get()) != 0 || CmFile::Close(m_pStream.release()) != 0)
            return SystemFailure(this, "Close file", m_strPartial, FileAction::Write);
        if (CmFile::RenameOver(m_strPartial, m_strPath) != 0)
            return SystemFailure(this, "Rename file", m_strPath, FileAction::OpenForWriting);
        m_bCreated = false;
        if (CmFile::SyncDirectoryOf(m_strPath) != 0)
            return SystemFailure(this, "Sync directory", m_strPath, FileAction::Write);
        return CACHE_OK;
    }

 private:
    static constexpr int c_nMostPartials = 1000;

    bool TryOpen() {
        m_pStream.reset(CmFile::Open(m_strPartial, CmFile::Open_New, CmFile::Path_Utf8));
        return m_pStream != nullptr;
    }

    CmInt32 Drain() {
        const std::size_t nLength = m_vecBlock.size();
        const bool bGood = CmFile::Write(m_pStream.get(), m_vecBlock.data(), nLength) == nLength;
        m_vecBlock.clear();
        return bGood ? CmInt32{CACHE_OK}
                     : SystemFailure(this, "Write data", m_strPartial, FileAction::Write);
    }

    const CCmString m_strPath;
    CCmString m_strPartial;
    StreamPtr m_pStream;
    bool m_bCreated = false;  // the partial file is there and is ours
    std::vector<unsigned char> m_vecBlock;
};

/// A stream to be packed. Its bytes are those of the file strPath, or strBytes if that is empty.
struct tagStream {
    tagFileDescriber aDescriber;
    tagMRFD aEntry;
    CCmString strBytes;
    CCmString strPath;

    bool IsConf() const { return aEntry.wTag == c_wConfTag; }
};

/// Reads the bytes of a stream from their beginning.
class CSource {
 public:
    explicit CSource(const tagStream& aStream) : m_stream(aStream) {}

    CmInt32 Open() {
        if (m_stream.strPath.empty()) return CACHE_OK;
        m_pStream.reset(CmFile::Open(m_stream.strPath, CmFile::Open_Read, CmFile::Path_Local));
        return m_pStream ? CmInt32{CACHE_OK}
                         : SystemFailure(this, "Open source", m_stream.strPath,
                                         FileAction::OpenForReading);
    }

    CmInt32 GetSize(std::uint64_t& qwSize) {
        qwSize = m_stream.strBytes.size();
        if (!m_pStream) return CACHE_OK;
        const std::int64_t nSize = CmFile::Size(m_pStream.get());
        if (nSize < 0)
            return SystemFailure(this, "Size of source", m_stream.strPath, FileAction::Write);
        qwSize = static_cast<std::uint64_t>(nSize);
        return CACHE_OK;
    }

    /// Fewer bytes than wanted mean the end (IsAtEnd) or a failure with its errno.
    std::size_t Read(unsigned char* lpBuffer, std::size_t nLength) {
        if (m_pStream) return CmFile::Read(m_pStream.get(), lpBuffer, nLength, m_bEnd);
        nLength = m_stream.strBytes.copy(reinterpret_cast<char*>(lpBuffer), nLength, m_nPosition);
        m_nPosition += nLength;
        return nLength;
    }
    bool IsAtEnd() const { return m_bEnd; }

 private:
    const tagStream& m_stream;
    StreamPtr m_pStream;          // null for bytes in memory
    std::size_t m_nPosition = 0;  // in these
    bool m_bEnd = false;
};

/// Where the bytes of a stream lie in the container.
struct tagPlace {
    CmUint32 dwOffset;
    CmUint32 dwSize;
};

}  // namespace

/// The streams added so far, and how they are written. Its operations throw std::bad_alloc.
class CContainerWriter::Impl {
 public:
    explicit Impl(tagFailure& aFailure) : m_failure(aFailure) {}

    CmInt32 Add(tagStream aStream);
    CmInt32 Write(const CCmString& strPath);

    CmUint32 m_dwIndexType = Index_Packed;
    bool m_bFileHeader = false;
    CmUint32 m_dwFileVersion = 0;
    CmUint32 m_dwCBTimeStamp = 0;

 private:
    CmInt32 LayOut(std::vector<tagPlace>& vecPlaces, CmUint32& dwFileSize) const;
    CmInt32 WriteAll(const CCmString& strPath) const;
    CmInt32 WriteFileHeader(CPartialFile& aFile, CmUint32 dwFileSize) const;
    CmInt32 WriteEntry(CPartialFile& aFile, std::size_t nIndex, const tagPlace& aPlace) const;
    CmInt32 WriteData(CPartialFile& aFile, const tagStream& aStream, CmUint32 dwSize) const;
    CmInt32 Note(const CCmString& strFile, const char* lpReason, int nErrno, CmInt32 lResult) const;
    CmInt32 NoteTarget(const CPartialFile& aFile, CmInt32 lResult) const;

    tagFailure& m_failure;
    CDescriberTable<tagStream> m_streams;
};

/// Keeps why an operation fails. Returns the code.
CmInt32 CContainerWriter::Impl::Note(const CCmString& strFile, const char* lpReason, int nErrno,
                                     CmInt32 lResult) const {
    m_failure.lpReason = lpReason;
    m_failure.nErrno = nErrno;
    m_failure.strFile = strFile;
    return lResult;
}

/// A failure that no source is to blame for is the container's. errno must be that of the failure.
CmInt32 CContainerWriter::Impl::NoteTarget(const CPartialFile& aFile, CmInt32 lResult) const {
    if (lResult == CACHE_OK || *m_failure.lpReason != '\0') return lResult;
    return Note(aFile.GetPath(), "it could not be written", errno, lResult);
}

CmInt32 CContainerWriter::Impl::Add(tagStream aStream) {
    const tagFileDescriber& aDescriber = aStream.aDescriber;
    const tagDataInfo aWanted{aDescriber.wDataType, aDescriber.dwFileID, 0, aDescriber.byFileType};
    const bool bShortConf = aStream.IsConf() && aStream.strPath.empty() &&
                            aStream.strBytes.size() < c_dwEntryFileHeaderSize;
    if (m_streams.Find(aWanted) || bShortConf) {
        TraceError("CContainerWriter::AddStream->",
                   (bShortConf ? "Conf stream without header" : "Stream added twice"),
                   " FileID=", aDescriber.dwFileID, " DataType=", aDescriber.wDataType,
                   " FileType=", aDescriber.byFileType, " this=", this);
        return Note(aStream.strPath, bShortConf ? c_szShortConf : "its stream was added before", 0,
                    CACHE_ERR_INVALID_ARG);
    }
    if (m_streams.Size() >= c_dwMaxKnownEntries) {
        TraceError("CContainerWriter::AddStream->Too many streams", " this=", this);
        return Note(aStream.strPath, c_szTooManyStreams, 0, CACHE_ERR_OUT_OF_MEMORY);
    }
    m_streams.Add(std::move(aStream));
    return CACHE_OK;
}

/// If there is a file header to be written and no conf stream to hold it, one is lent for the time
/// of writing.
CmInt32 CContainerWriter::Impl::Write(const CCmString& strPath) {
    if (!m_bFileHeader || m_streams.Find({100, 100, 0, 2})) return WriteAll(strPath);
    if (m_streams.Size() >= c_dwMaxKnownEntries) {
        TraceError("CContainerWriter::Write->Too many streams for a conf stream", " this=", this);
        return Note(strPath, c_szTooManyStreams, 0, CACHE_ERR_OUT_OF_MEMORY);
    }
    tagStream aConf{{100, 2, 100, 0}, {}, CCmString(c_dwEntryFileHeaderSize, '\0'), {}};
    aConf.aEntry.wTag = c_wConfTag;
    m_streams.Add(std::move(aConf));
    struct Lent {
        ~Lent() { aStreams.RemoveLast(); }
        CDescriberTable<tagStream>& aStreams;
    } aLent{m_streams};
    return WriteAll(strPath);
}

/// Gives every stream its place behind the index: those with bytes in order and without gaps, the
/// empty ones at the end.
CmInt32 CContainerWriter::Impl::LayOut(std::vector<tagPlace>& vecPlaces,
                                       CmUint32& dwFileSize) const {
    std::uint64_t qwEnd = c_dwFileHeaderSize + std::uint64_t{c_dwEntrySize} * m_streams.Size();
    vecPlaces.reserve(m_streams.Size());
    for (const tagStream& aStream : m_streams) {
        CSource aSource(aStream);
        std::uint64_t qwSize = 0;
        CmInt32 lResult = aSource.Open();
        if (lResult == CACHE_OK) lResult = aSource.GetSize(qwSize);
        if (lResult != CACHE_OK) return Note(aStream.strPath, c_szUnreadable, errno, lResult);
        const bool bShortConf = aStream.IsConf() && qwSize < c_dwEntryFileHeaderSize;
        if (bShortConf || qwSize > c_qwMaxSize - qwEnd) {
            TraceError("CContainerWriter::Write->",
                       (bShortConf ? "Conf stream without header" : "More than 4 GiB"),
                       " file=", aStream.strPath, " this=", this);
            return Note(aStream.strPath, bShortConf ? c_szShortConf : c_szTooLarge, 0,
                        CACHE_ERR_INVALID_ARG);
        }
        vecPlaces.push_back({static_cast<CmUint32>(qwEnd), static_cast<CmUint32>(qwSize)});
        qwEnd += qwSize;
    }
    dwFileSize = static_cast<CmUint32>(qwEnd);
    for (tagPlace& aPlace : vecPlaces)
        if (aPlace.dwSize == 0) aPlace.dwOffset = dwFileSize;
    return CACHE_OK;
}

CmInt32 CContainerWriter::Impl::WriteAll(const CCmString& strPath) const {
    if (m_streams.Size() == 0) {
        TraceError("CContainerWriter::Write->No stream", " this=", this);
        return Note(strPath, "there is no stream to pack", 0, CACHE_ERR_INVALID_STATE);
    }
    if (strPath.empty()) {
        TraceError("CContainerWriter::Write->No path", " this=", this);
        return Note(strPath, "the container has no path", 0, CACHE_ERR_FAILED);
    }
    std::vector<tagPlace> vecPlaces;
    CmUint32 dwFileSize = 0;
    CPartialFile aFile(strPath);
    CmInt32 lResult = LayOut(vecPlaces, dwFileSize);
    if (lResult == CACHE_OK) lResult = aFile.Open();
    if (lResult == CACHE_OK) lResult = WriteFileHeader(aFile, dwFileSize);
    for (std::size_t i = 0; lResult == CACHE_OK && i < vecPlaces.size(); ++i)
        lResult = WriteEntry(aFile, i, vecPlaces[i]);
    for (std::size_t i = 0; lResult == CACHE_OK && i < vecPlaces.size(); ++i)
        lResult = WriteData(aFile, m_streams[i], vecPlaces[i].dwSize);
    if (lResult == CACHE_OK) lResult = aFile.Finish();
    return NoteTarget(aFile, lResult);
}

CmInt32 CContainerWriter::Impl::WriteFileHeader(CPartialFile& aFile, CmUint32 dwFileSize) const {
    unsigned char aBytes[c_dwFileHeaderSize] = {};
    Put32(aBytes + 8, dwFileSize);
    Put32(aBytes + 16, static_cast<CmUint32>(m_streams.Size()));
    Put32(aBytes + 20, m_dwIndexType);
    return aFile.Put(aBytes, sizeof aBytes);
}

CmInt32 CContainerWriter::Impl::WriteEntry(CPartialFile& aFile, std::size_t nIndex,
                                           const tagPlace& aPlace) const {
    const tagMRFD& aEntry = m_streams[nIndex].aEntry;
    const bool bNext = m_dwIndexType == Index_Chained && nIndex + 1 < m_streams.Size();
    const std::size_t nNext = c_dwFileHeaderSize + c_dwEntrySize * (nIndex + 1);
    unsigned char aBytes[c_dwEntrySize] = {};
    Put16(aBytes, aEntry.wTag);
    Put32(aBytes + 4, aEntry.dwEntryID);
    Put32(aBytes + 8, aEntry.dwExtraInfo);
    Put32(aBytes + 16, aPlace.dwOffset);
    Put32(aBytes + 20, aPlace.dwSize);
    Put32(aBytes + 24, bNext ? static_cast<CmUint32>(nNext) : 0);
    return aFile.Put(aBytes, sizeof aBytes);
}

CmInt32 CContainerWriter::Impl::WriteData(CPartialFile& aFile, const tagStream& aStream,
                                          CmUint32 dwSize) const {
    CSource aSource(aStream);
    CmInt32 lResult = aSource.Open();
    if (lResult != CACHE_OK) return Note(aStream.strPath, c_szUnreadable, errno, lResult);
    std::vector<unsigned char> vecBlock(std::min<std::size_t>(dwSize + 1, c_nBlockSize));
    bool bFirst = true;
    for (CmUint32 dwLeft = dwSize; lResult == CACHE_OK && dwLeft > 0; bFirst = false) {
        const std::size_t nPart = std::min<std::size_t>(dwLeft, vecBlock.size());
        if (aSource.Read(vecBlock.data(), nPart) != nPart) {
            lResult = SystemFailure(this, "Read source", aStream.strPath, FileAction::Write);
            return aSource.IsAtEnd() ? Note(aStream.strPath, c_szShrank, 0, lResult)
                                     : Note(aStream.strPath, c_szUnreadable, errno, lResult);
        }
        if (bFirst && m_bFileHeader && aStream.IsConf()) {
            Put32(vecBlock.data() + c_dwFileVersionOffset, m_dwFileVersion);
            Put32(vecBlock.data() + c_dwCBTimeStampOffset, m_dwCBTimeStamp);
        }
        lResult = NoteTarget(aFile, aFile.Put(vecBlock.data(), nPart));
        dwLeft -= static_cast<CmUint32>(nPart);
    }
    if (lResult == CACHE_OK && aSource.Read(vecBlock.data(), 1) != 0)
        return Note(aStream.strPath, c_szGrew, 0,
                    SystemFailure(this, "Source has grown", aStream.strPath, FileAction::Write));
    return lResult;
}

CContainerWriter::CContainerWriter() : m_pImpl(new (std::nothrow) Impl(m_failure)) {
    if (!m_pImpl) Refuse(c_szNoMemory, CACHE_ERR_OUT_OF_MEMORY);
}

CContainerWriter::~CContainerWriter() = default;

const CContainerWriter::tagFailure& CContainerWriter::GetLastFailure() const { return m_failure; }

/// A failure that is not about a file.
CmInt32 CContainerWriter::Refuse(const char* lpReason, CmInt32 lResult) {
    m_failure.strFile.clear();
    m_failure.lpReason = lpReason;
    m_failure.nErrno = 0;
    return lResult;
}

CmInt32 CContainerWriter::SetIndexType(CmUint32 dwIndexType) {
    if (!m_pImpl) return CACHE_ERR_OUT_OF_MEMORY;
    CM_CHECK(dwIndexType == Index_Packed || dwIndexType == Index_Chained, "dwIndexType",
             CACHE_ERR_INVALID_ARG);
    m_pImpl->m_dwIndexType = dwIndexType;
    return CACHE_OK;
}

void CContainerWriter::SetFileHeader(CmUint32 dwFileVersion, CmUint32 dwCBTimeStamp) {
    if (!m_pImpl) return;
    m_pImpl->m_bFileHeader = true;
    m_pImpl->m_dwFileVersion = dwFileVersion;
    m_pImpl->m_dwCBTimeStamp = dwCBTimeStamp;
}

/// Adds a stream whose bytes are those of the file *pPath, or those at lpData without one.
CmInt32 CContainerWriter::Add(const tagMRFD& aEntry, const unsigned char* lpData, CmUint32 dwLength,
                              const CCmString* pPath) try {
    if (!m_pImpl) return CACHE_ERR_OUT_OF_MEMORY;
    Refuse("it has neither bytes nor a path", CACHE_OK);
    CM_CHECK(pPath ? !pPath->empty() : lpData || dwLength == 0, "strPath || lpData",
             CACHE_ERR_INVALID_ARG);
    tagStream aStream{{}, aEntry, {}, {}};
    if (TagToFileDescriber(aEntry, aStream.aDescriber) != CACHE_OK) {
        TraceError("CContainerWriter::AddStream->Unknown tag=", aEntry.wTag, " this=", this);
        return Refuse(c_szNoTag, CACHE_ERR_INVALID_ARG);
    }
    Refuse("", CACHE_OK);
    if (pPath)
        aStream.strPath = *pPath;
    else if (lpData)
        aStream.strBytes.assign(reinterpret_cast<const char*>(lpData), dwLength);
    return m_pImpl->Add(std::move(aStream));
} catch (const std::exception&) {  // no memory, or more than a string can hold
    TraceError("CContainerWriter::AddStream->Low memory", " this=", this);
    return Refuse(c_szNoMemory, CACHE_ERR_OUT_OF_MEMORY);
}

CmInt32 CContainerWriter::AddDescribed(const tagFileDescriber& aDescriber,
                                       const unsigned char* lpData, CmUint32 dwLength,
                                       const CCmString* pPath) {
    tagMRFD aEntry{};
    if (FileDescriberToTag(aDescriber, aEntry) == CACHE_OK)
        return Add(aEntry, lpData, dwLength, pPath);
    TraceError("CContainerWriter::AddStream->No tag for FileID=", aDescriber.dwFileID,
               " DataType=", aDescriber.wDataType, " FileType=", aDescriber.byFileType,
               " this=", this);
    return Refuse(c_szNoTag, CACHE_ERR_INVALID_ARG);
}

CmInt32 CContainerWriter::AddStream(const tagFileDescriber& aDescriber, const unsigned char* lpData,
                                    CmUint32 dwLength) {
    return AddDescribed(aDescriber, lpData, dwLength, nullptr);
}

CmInt32 CContainerWriter::AddStreamFile(const tagFileDescriber& aDescriber,
                                        const CCmString& strPath) {
    return AddDescribed(aDescriber, nullptr, 0, &strPath);
}

CmInt32 CContainerWriter::AddTagStream(std::uint16_t wTag, CmUint32 dwEntryID, CmUint32 dwExtraInfo,
                                       const unsigned char* lpData, CmUint32 dwLength) {
    return Add({wTag, 0, dwEntryID, dwExtraInfo, 0, 0, 0, 0, 0}, lpData, dwLength, nullptr);
}

CmInt32 CContainerWriter::AddTagStreamFile(std::uint16_t wTag, CmUint32 dwEntryID,
                                           CmUint32 dwExtraInfo, const CCmString& strPath) {
    return Add({wTag, 0, dwEntryID, dwExtraInfo, 0, 0, 0, 0, 0}, nullptr, 0, &strPath);
}

CmInt32 CContainerWriter::Write(const CCmString& strPath) try {
    if (!m_pImpl) return CACHE_ERR_OUT_OF_MEMORY;
    Refuse("", CACHE_OK);
    return m_pImpl->Write(strPath);
} catch (const std::bad_alloc&) {
    TraceError("CContainerWriter::Write->Low memory", " this=", this);
    return Refuse(c_szNoMemory, CACHE_ERR_OUT_OF_MEMORY);
}
