#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <direct.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>

#include "platform/CmFile.h"

namespace {

/// Large counts are handed to the runtime in parts: it takes no more than 2 GiB at a time.
constexpr std::size_t c_nLargestPart = 0x40000000;

/// Whether the path ends where the system would think so. A zero byte inside would make it name
/// another file.
bool IsWhole(const CCmString& strPath) {
    if (strPath.find('\0') == CCmString::npos) return true;
    errno = EINVAL;
    return false;
}

/// The path in the system's own characters; empty, with errno 22, if it isn't UTF-8 or is empty.
std::wstring WidePath(const CCmString& strPath) {
    errno = EINVAL;
    if (strPath.empty() || strPath.size() > INT_MAX || !IsWhole(strPath)) return {};
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

/// Transfers dwLength bytes by as many calls of aTransfer (bytes done so far, bytes wanted) as it
/// takes, until one falls short. Returns how many were transferred.
template <class Transfer>
std::size_t InParts(std::size_t dwLength, Transfer aTransfer) {
    std::size_t dwDone = 0;
    while (dwDone < dwLength) {
        const std::size_t dwPart = std::min(dwLength - dwDone, c_nLargestPart);
        const std::size_t dwGot = aTransfer(dwDone, dwPart);
        dwDone += dwGot;
        if (dwGot < dwPart) break;
    }
    return dwDone;
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
    if (aText == Path_Utf8 ? strWide.empty() : !IsWhole(strPath)) return nullptr;
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
    const std::size_t dwWritten = InParts(dwLength, [&](std::size_t dwDone, std::size_t dwPart) {
        return std::fwrite(static_cast<const char*>(lpData) + dwDone, 1, dwPart, pStream);
    });
    if (dwWritten == dwLength) return dwWritten;
    // A disk that fills up in the middle of a block gives a short count and no system error.
    const int nReason = ::GetLastError() == ERROR_SUCCESS ? ENOSPC : errno;
    std::clearerr(pStream);
    errno = nReason;
    return dwWritten;
}

std::size_t Read(std::FILE* pStream, void* lpBuffer, std::size_t dwLength, bool& bEnd) {
    std::clearerr(pStream);
    errno = 0;
    const std::size_t dwRead = InParts(dwLength, [&](std::size_t dwDone, std::size_t dwPart) {
        return std::fread(static_cast<char*>(lpBuffer) + dwDone, 1, dwPart, pStream);
    });
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
    return IsWhole(strPath) && ::_access(strPath.c_str(), 0) == 0;
}

int MakeDirectory(const CCmString& strPath) {
    errno = 0;
    return IsWhole(strPath) ? ::_mkdir(strPath.c_str()) : -1;
}

int RemoveFile(const CCmString& strPath) {
    errno = 0;
    return IsWhole(strPath) ? ::_unlink(strPath.c_str()) : -1;
}

int RemoveEmptyDirectory(const CCmString& strPath) {
    errno = 0;
    return IsWhole(strPath) ? ::_rmdir(strPath.c_str()) : -1;
}

int RenameOver(const CCmString& strFrom, const CCmString& strTo) {
    const std::wstring strWideFrom = WidePath(strFrom);
    const std::wstring strWideTo = WidePath(strTo);
    if (strWideFrom.empty() || strWideTo.empty()) return -1;
    if (::MoveFileExW(strWideFrom.c_str(), strWideTo.c_str(), MOVEFILE_REPLACE_EXISTING)) return 0;
    errno = ErrnoFromSystem();
    return -1;
}

int RemoveUtf8File(const CCmString& strPath) {
    const std::wstring strWide = WidePath(strPath);
    return strWide.empty() ? -1 : ::_wunlink(strWide.c_str());
}

}  // namespace CmFile
