#include "fuzz/MemoryFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/CmFile.h"

namespace {

/// The handle that the layers above use as a stream.
struct tagOpening {
    std::uint64_t qwPosition = 0;
};

tagOpening& Of(std::FILE* pStream) { return *reinterpret_cast<tagOpening*>(pStream); }

int Refuse(int nErrno) {
    errno = nErrno;
    return -1;
}

}  // namespace

MemoryFile& MemoryFile::Instance() {
    static MemoryFile s_file;
    return s_file;
}

namespace CmFile {

std::FILE* Open(const CCmString& /*strPath*/, OpenMode aMode, PathText /*aText*/,
                const CmPlace& /*aPlace*/) {
    if (aMode != Open_Read) return Refuse(EROFS), nullptr;
    ++MemoryFile::Instance().nOpen;
    return reinterpret_cast<std::FILE*>(new tagOpening);
}

bool CanConvert(const CCmString&, PathText) { return true; }

int Close(std::FILE* pStream) {
    --MemoryFile::Instance().nOpen;
    delete &Of(pStream);
    return 0;
}

int Seek(std::FILE* pStream, std::int64_t nPosition) {
    Of(pStream).qwPosition = static_cast<std::uint64_t>(nPosition);
    return 0;
}

std::size_t Read(std::FILE* pStream, void* lpBuffer, std::size_t dwLength, bool& bEnd) {
    MemoryFile& aFile = MemoryFile::Instance();
    const std::uint64_t qwFrom = Of(pStream).qwPosition;
    const std::uint64_t qwTo = std::min<std::uint64_t>(qwFrom + dwLength, aFile.strBytes.size());
    ++aFile.qwReads;
    bEnd = qwFrom + dwLength > qwTo;
    if (qwFrom >= qwTo) return 0;
    if (std::max(qwFrom, aFile.qwBadFrom) < std::min(qwTo, aFile.qwBadTo)) {
        bEnd = false;
        return Refuse(EIO), 0;
    }
    const auto dwCount = static_cast<std::size_t>(qwTo - qwFrom);
    std::memcpy(lpBuffer, aFile.strBytes.data() + qwFrom, dwCount);
    aFile.qwBytesRead += dwCount;
    Of(pStream).qwPosition = qwTo;
    return dwCount;
}

ReadEnd ReadAt(std::FILE* pStream, std::int64_t nPosition, void* lpBuffer, std::size_t dwLength,
               std::size_t& dwRead) {
    Seek(pStream, nPosition);
    bool bEnd = false;
    dwRead = Read(pStream, lpBuffer, dwLength, bEnd);
    if (dwRead == dwLength) return Read_Whole;
    return bEnd ? Read_AtEnd : Read_Failed;
}

std::int64_t Size(std::FILE* /*pStream*/) {
    return static_cast<std::int64_t>(MemoryFile::Instance().strBytes.size());
}

std::size_t Write(std::FILE*, const void*, std::size_t) { return Refuse(EROFS), 0; }
int CutBack(std::FILE*, std::int64_t) { return Refuse(EROFS); }
int Flush(std::FILE*) { return 0; }
int Sync(std::FILE*) { return 0; }
bool Exists(const CCmString&, const CmPlace&) { return true; }
int MakeDirectory(const CCmString&, const CmPlace&) { return Refuse(EROFS); }
int RemoveFile(const CCmString&) { return Refuse(EROFS); }
int RemoveEmptyDirectory(const CCmString&) { return Refuse(EROFS); }
int RenameOver(const CCmString&, const CCmString&) { return Refuse(EROFS); }
int RemoveUtf8File(const CCmString&) { return Refuse(EROFS); }
int SyncDirectoryOf(const CCmString&) { return Refuse(EROFS); }

}  // namespace CmFile
