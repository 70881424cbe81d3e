#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <windows.h>

#include <cerrno>
#include <climits>
#include <string>

#include "platform/CmFile.h"

namespace {

/// The path in the system's own characters; empty if it isn't UTF-8 or is empty itself.
std::wstring WidePath(const CCmString& strPath) {
    if (strPath.empty() || strPath.size() > INT_MAX) return {};
    const int nLength = static_cast<int>(strPath.size());
    const int nWide =
        ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, strPath.data(), nLength, nullptr, 0);
    std::wstring strWide(static_cast<std::size_t>(nWide), L'\0');
    if (nWide > 0)
        ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, strPath.data(), nLength, &strWide[0],
                              nWide);
    return strWide;
}

/// Names the runtime gives to the errors of a call that doesn't set errno.
int ErrnoFromSystem() {
    switch (::GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return ENOENT;
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
            return EACCES;
        case ERROR_DISK_FULL:
            return ENOSPC;
        default:
            return EIO;
    }
}

bool IsFileLike(int nFile) {
    struct _stat64 aStatus;
    if (::_fstat64(nFile, &aStatus) != 0) return false;
    const int nKind = aStatus.st_mode & _S_IFMT;
    if (nKind == _S_IFREG || nKind == _S_IFCHR) return true;
    errno = EINVAL;
    return false;
}

std::FILE* ToStream(int nFile, const char* lpMode) {
    if (nFile < 0) return nullptr;
    errno = 0;  // at the runtime's limit of streams _fdopen leaves it alone
    std::FILE* const pStream = IsFileLike(nFile) ? ::_fdopen(nFile, lpMode) : nullptr;
    if (pStream) {
        std::setvbuf(pStream, nullptr, _IONBF, 0);
        return pStream;
    }
    const int nReason = errno;
    ::_close(nFile);
    errno = nReason;
    return nullptr;
}

}  // namespace

namespace CmFile {

std::FILE* Open(const CCmString& strPath, OpenMode aMode, PathText aText) {
    const bool bWrite = aMode == Open_Write;
    const int nFlags =
        (bWrite ? _O_RDWR | _O_CREAT | _O_TRUNC : _O_RDONLY) | _O_BINARY | _O_NOINHERIT;
    const int nAccess = _S_IREAD | _S_IWRITE;
    const std::wstring strWide = aText == Path_Utf8 ? WidePath(strPath) : std::wstring();
    const bool bCutShort = strPath.find('\0') != CCmString::npos;  // would name another file
    if (bCutShort || (aText == Path_Utf8 && strWide.empty())) {
        errno = EINVAL;
        return nullptr;
    }
    errno = 0;
    const int nFile = aText == Path_Utf8 ? ::_wopen(strWide.c_str(), nFlags, nAccess)
                                         : ::_open(strPath.c_str(), nFlags, nAccess);
    return ToStream(nFile, bWrite ? "wb+" : "rb");
}

int Close(std::FILE* pStream) {
    errno = 0;
    return std::fclose(pStream);
}

int Seek(std::FILE* pStream, std::int64_t nPosition, SeekFrom aFrom) {
    errno = 0;
    return ::_fseeki64(pStream, nPosition, aFrom == From_End ? SEEK_END : SEEK_SET);
}

std::size_t Write(std::FILE* pStream, const void* lpData, std::size_t dwLength) {
    errno = 0;
    ::SetLastError(ERROR_SUCCESS);
    const std::size_t dwWritten = std::fwrite(lpData, 1, dwLength, pStream);
    if (dwWritten == dwLength) return dwWritten;
    // A disk that fills up in the middle of a block is reported as a short count and nothing else.
    if (errno == 0 && ::GetLastError() == ERROR_SUCCESS) errno = ENOSPC;
    const int nReason = errno;
    std::clearerr(pStream);
    errno = nReason;
    return dwWritten;
}

std::size_t Read(std::FILE* pStream, void* lpBuffer, std::size_t dwLength, bool& bEnd) {
    std::clearerr(pStream);
    errno = 0;
    const std::size_t dwRead = std::fread(lpBuffer, 1, dwLength, pStream);
    bEnd = std::feof(pStream) != 0;
    if (dwRead < dwLength) std::clearerr(pStream);
    return dwRead;
}

int Flush(std::FILE* pStream) {
    errno = 0;
    return std::fflush(pStream);
}

int Sync(std::FILE* pStream) {
    errno = 0;
    return ::_commit(::_fileno(pStream));
}

std::int64_t Size(std::FILE* pStream) {
    return Seek(pStream, 0, From_End) == 0 ? ::_ftelli64(pStream) : -1;
}

bool Exists(const CCmString& strPath) {
    errno = 0;
    return ::_access(strPath.c_str(), 0) == 0;
}

int MakeDirectory(const CCmString& strPath) {
    errno = 0;
    return ::_mkdir(strPath.c_str());
}

int RemoveFile(const CCmString& strPath) {
    errno = 0;
    return ::_unlink(strPath.c_str());
}

int RemoveEmptyDirectory(const CCmString& strPath) {
    errno = 0;
    return ::_rmdir(strPath.c_str());
}

int RenameOver(const CCmString& strFrom, const CCmString& strTo) {
    errno = 0;
    const std::wstring strWideFrom = WidePath(strFrom);
    const std::wstring strWideTo = WidePath(strTo);
    if (::MoveFileExW(strWideFrom.c_str(), strWideTo.c_str(), MOVEFILE_REPLACE_EXISTING)) return 0;
    errno = ErrnoFromSystem();
    return -1;
}

int RemoveUtf8File(const CCmString& strPath) {
    errno = 0;
    return ::_wunlink(WidePath(strPath).c_str());
}

}  // namespace CmFile
