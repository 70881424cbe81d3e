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
#include <new>
#include <string>

#include "platform/CmFile.h"
#include "platform/CmFileWindows.h"

namespace {

/// The runtime transfers at most 2 GiB in one call, so larger transfers are divided.
constexpr std::size_t c_nMaxBytesPerCall = 0x40000000;

/// Returns whether the path has no zero byte, and otherwise sets errno. The system would read such
/// a path only up to that byte, which may be the name of another file.
bool IsWhole(const CCmString& strPath) {
    if (strPath.find('\0') == CCmString::npos) return true;
    errno = EINVAL;
    return false;
}

/// Converts text to wide characters. Returns an empty string if it is empty or invalid.
std::wstring ToWide(UINT nCodePage, DWORD dwFlags, const CCmString& strText) {
    if (strText.empty() || strText.size() > INT_MAX) return {};
    const int nLength = static_cast<int>(strText.size());
    const int nWide =
        ::MultiByteToWideChar(nCodePage, dwFlags, strText.data(), nLength, nullptr, 0);
    std::wstring strWide(static_cast<std::size_t>(nWide), L'\0');
    if (nWide > 0)
        ::MultiByteToWideChar(nCodePage, dwFlags, strText.data(), nLength, &strWide[0], nWide);
    return strWide;
}

/// Converts a UTF-8 path to wide characters. Returns an empty string, with errno 22, if the path is
/// empty or is not UTF-8.
std::wstring WidePath(const CCmString& strPath) {
    errno = EINVAL;  // for each of the failures below
    return IsWhole(strPath) ? ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, strPath) : std::wstring();
}

bool IsFileLike(int nFile) {
    struct _stat64 aStatus;
    if (::_fstat64(nFile, &aStatus) != 0) return false;
    const int nKind = aStatus.st_mode & _S_IFMT;
    if (nKind == _S_IFREG || nKind == _S_IFCHR) return true;
    errno = EINVAL;
    return false;
}

/// Transfers dwLength bytes with as many calls of aTransfer (bytes done so far, bytes to transfer)
/// as are needed, until one transfers fewer. Returns the number of bytes that were transferred.
template <class Transfer>
std::size_t InParts(std::size_t dwLength, Transfer aTransfer) {
    std::size_t dwDone = 0;
    while (dwDone < dwLength) {
        const std::size_t dwPart = std::min(dwLength - dwDone, c_nMaxBytesPerCall);
        const std::size_t dwGot = aTransfer(dwDone, dwPart);
        dwDone += dwGot;
        if (dwGot < dwPart) break;
    }
    return dwDone;
}

/// Returns how many bytes the file has after the position of the stream. A std::size_t with 32 bits
/// cannot hold every such number.
std::uint64_t BytesToEnd(std::FILE* pStream) {
    const std::int64_t nBytes = ::_filelengthi64(::_fileno(pStream)) - ::_ftelli64(pStream);
    return nBytes > 0 ? static_cast<std::uint64_t>(nBytes) : 0;
}

std::FILE* ToStream(int nFile, const char* lpMode) {
    errno = 0;  // _fdopen does not set it if the runtime has no free stream
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

/// Makes a call that takes a path in the system's encoding and returns -1 on failure.
template <class Call>
int WithPath(const CCmString& strPath, Call aCall) {
    errno = 0;
    return IsWhole(strPath) ? aCall(strPath.c_str()) : -1;
}

/// The same for a UTF-8 path.
template <class Call>
int WithWidePath(const CCmString& strPath, Call aCall) try {
    const std::wstring strWide = WidePath(strPath);
    if (strWide.empty()) return -1;
    errno = 0;
    return aCall(strWide.c_str());
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
}

/// Converts a path that is relative to aDirectory to a whole path in wide characters. Returns an
/// empty string, with errno set, on failure. Text in the system's encoding is converted as the
/// system's own calls convert it.
std::wstring PlacedPath(const CmPlace::tagDirectory& aDirectory, const CCmString& strPath,
                        CmFile::PathText aText) {
    errno = EINVAL;
    if (!IsWhole(strPath) || strPath.size() > INT_MAX) return {};
    const UINT nLocal = ::AreFileApisANSI() ? CP_ACP : CP_OEMCP;
    const std::wstring strWide =
        aText == CmFile::Path_Utf8 ? WidePath(strPath) : ToWide(nLocal, 0, strPath);
    if (strWide.size() < aDirectory.nReplaced) return {};
    return aDirectory.strBase + strWide.substr(aDirectory.nReplaced);
}

/// Calls aCall with a path in the system's encoding. If the path is relative to a directory, calls
/// aWide with the whole path instead. Both return -1 on failure.
template <class Call, class WideCall>
int WithPlace(const CmPlace& aPlace, const CCmString& strPath, Call aCall, WideCall aWide) try {
    errno = aPlace.Error();
    if (errno != 0) return -1;
    if (!aPlace.Directory()) return WithPath(strPath, aCall);
    const std::wstring strWide = PlacedPath(*aPlace.Directory(), strPath, CmFile::Path_Local);
    if (strWide.empty()) return -1;
    errno = 0;
    return aWide(strWide.c_str());
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
}

}  // namespace

int ErrnoFromSystem() {
    switch (::GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return ENOENT;
        case ERROR_ACCESS_DENIED:
        case ERROR_LOCK_VIOLATION:
        case ERROR_SHARING_VIOLATION:
        case ERROR_WRITE_PROTECT:
            return EACCES;
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
            return ENOSPC;
        default:
            return EIO;
    }
}

namespace CmFile {

bool CanConvert(const CCmString& strPath, PathText aText) {
    return aText == Path_Local || !ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, strPath).empty();
}

std::FILE* Open(const CCmString& strPath, OpenMode aMode, PathText aText, const CmPlace& aPlace) {
    int nFlags = _O_BINARY | _O_NOINHERIT | (aMode == Open_Read ? _O_RDONLY : _O_RDWR | _O_CREAT);
    if (aMode == Open_Write) nFlags |= _O_TRUNC;
    if (aMode == Open_New) nFlags |= _O_EXCL;
    const int nAccess = _S_IREAD | _S_IWRITE;
    errno = aPlace.Error();
    if (errno != 0) return nullptr;
    const bool bWide = aText == Path_Utf8 || aPlace.Directory();
    const std::wstring strWide = aPlace.Directory()
                                     ? PlacedPath(*aPlace.Directory(), strPath, aText)
                                     : (bWide ? WidePath(strPath) : std::wstring());
    if (bWide ? strWide.empty() : !IsWhole(strPath)) return nullptr;
    errno = 0;
    const int nFile = bWide ? ::_wopen(strWide.c_str(), nFlags, nAccess)
                            : ::_open(strPath.c_str(), nFlags, nAccess);
    if (nFile < 0) return nullptr;
    std::FILE* const pStream = ToStream(nFile, aMode == Open_Read ? "rb" : "wb+");
    if (!pStream && aMode == Open_New) {
        const int nReason = errno;
        bWide ? ::_wunlink(strWide.c_str()) : ::_unlink(strPath.c_str());
        errno = nReason;
    }
    return pStream;
}

int Close(std::FILE* pStream) {
    errno = 0;
    return std::fclose(pStream);
}

int Seek(std::FILE* pStream, std::int64_t nPosition) {
    errno = 0;
    return ::_fseeki64(pStream, nPosition, SEEK_SET);
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

std::size_t WriteBlocks(std::FILE* pStream, const tagBlock* pBlocks, std::size_t /*nCount*/) {
    return Write(pStream, pBlocks->lpData, pBlocks->nLength);
}

int CutBack(std::FILE* pStream, std::int64_t nSize) {
    errno = 0;
    const int nFile = ::_fileno(pStream);
    // The position comes from the system, because a write that failed on a full disk returns fewer
    // bytes than it has written.
    const std::int64_t nStopped = ::_lseeki64(nFile, 0, SEEK_CUR);
    if (nStopped == nSize) return 0;
    struct _stat64 aStatus;
    if (nStopped < 0 || ::_fstat64(nFile, &aStatus) != 0) return -1;
    const bool bRegular = (aStatus.st_mode & _S_IFMT) == _S_IFREG;
    if (!bRegular || ::_filelengthi64(nFile) != nStopped || nStopped < nSize) return -1;
    return ::_chsize_s(nFile, nSize) == 0 ? 0 : -1;
}

std::size_t Read(std::FILE* pStream, void* lpBuffer, std::size_t dwWanted, bool& bEnd) {
    std::size_t dwLength = dwWanted;
    std::clearerr(pStream);
    // The system checks the whole buffer before it reads. A caller that passes the largest length
    // to read up to the end of the file may have a smaller buffer.
    if (dwLength > c_nMaxBytesPerCall)
        dwLength = static_cast<std::size_t>(std::min<std::uint64_t>(dwLength, BytesToEnd(pStream)));
    errno = 0;
    const std::size_t dwRead = InParts(dwLength, [&](std::size_t dwDone, std::size_t dwPart) {
        return std::fread(static_cast<char*>(lpBuffer) + dwDone, 1, dwPart, pStream);
    });
    bEnd = std::feof(pStream) != 0 || (dwRead == dwLength && dwLength < dwWanted);
    if (dwRead < dwLength) std::clearerr(pStream);
    return dwRead;
}

ReadEnd ReadAt(std::FILE* pStream, std::int64_t nPosition, void* lpBuffer, std::size_t dwLength,
               std::size_t& dwRead) {
    dwRead = 0;
    if (Seek(pStream, nPosition) != 0) return Read_BadPosition;
    bool bEnd = false;
    dwRead = Read(pStream, lpBuffer, dwLength, bEnd);
    if (dwRead == dwLength) return Read_Whole;
    return bEnd ? Read_AtEnd : Read_Failed;
}

int Flush(std::FILE* pStream) {
    errno = 0;
    return std::fflush(pStream);
}

int Sync(std::FILE* pStream) {
    errno = 0;
    return ::_commit(::_fileno(pStream));
}

int DescriptorOf(std::FILE* pStream) { return ::_fileno(pStream); }

int Duplicate(std::FILE* /*pStream*/) {
    errno = 0;
    return -1;
}

/// Syncs through another handle if the system gives one. The runtime's function, and a sync through
/// the handle of the stream, block writes of other threads until the sync ends.
int SyncData(int nFile) {
    errno = 0;
    const HANDLE hFile = reinterpret_cast<HANDLE>(::_get_osfhandle(nFile));
    if (::GetFileType(hFile) != FILE_TYPE_DISK) return 0;
    const HANDLE hOwn = ::ReOpenFile(hFile, GENERIC_WRITE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 0);
    const bool bOwn = hOwn != INVALID_HANDLE_VALUE;
    if (!::FlushFileBuffers(bOwn ? hOwn : hFile)) errno = ErrnoFromSystem();
    if (bOwn) ::CloseHandle(hOwn);
    return errno == 0 ? 0 : -1;
}

void StartWriteBack(int /*nFile*/) {}

int OpenDirectoryOf(const CCmString& /*strPath*/, const CmPlace& /*aPlace*/, int /*nFile*/,
                    tagFileId& /*aId*/) {
    errno = 0;
    return -1;
}

int SyncDirectory(int /*nDirectory*/) { return 0; }

int CloseDescriptor(int nDescriptor) {
    errno = 0;
    return ::_close(nDescriptor);
}

int FreeSpace(std::FILE* pStream, std::uint64_t& qwBytes) try {
    errno = 0;
    const HANDLE hFile = reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(pStream)));
    std::wstring strPath(::GetFinalPathNameByHandleW(hFile, nullptr, 0, VOLUME_NAME_DOS), L'\0');
    ULARGE_INTEGER aFree;
    const DWORD dwSize = static_cast<DWORD>(strPath.size());
    const DWORD dwLength = ::GetFinalPathNameByHandleW(hFile, &strPath[0], dwSize, VOLUME_NAME_DOS);
    if (dwLength > 0 && dwLength < dwSize) {
        strPath.resize(strPath.find_last_of(L'\\') + 1);
        if (::GetDiskFreeSpaceExW(strPath.c_str(), &aFree, nullptr, nullptr)) {
            qwBytes = aFree.QuadPart;
            return 0;
        }
    }
    errno = ErrnoFromSystem();
    return -1;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
}

std::int64_t Size(std::FILE* pStream) {
    errno = 0;
    return ::_fseeki64(pStream, 0, SEEK_END) == 0 ? ::_ftelli64(pStream) : -1;
}

bool Exists(const CCmString& strPath, const CmPlace& aPlace) {
    return WithPlace(
               aPlace, strPath, [](const char* lpPath) { return ::_access(lpPath, 0); },
               [](const wchar_t* lpPath) { return ::_waccess(lpPath, 0); }) == 0;
}

int MakeDirectory(const CCmString& strPath, const CmPlace& aPlace) {
    return WithPlace(aPlace, strPath, ::_mkdir, ::_wmkdir);
}

int RemoveFile(const CCmString& strPath) { return WithPath(strPath, ::_unlink); }

int RemoveEmptyDirectory(const CCmString& strPath) { return WithPath(strPath, ::_rmdir); }

int RenameOver(const CCmString& strFrom, const CCmString& strTo) {
    return WithWidePath(strFrom, [&](const wchar_t* lpFrom) {
        return WithWidePath(strTo, [&](const wchar_t* lpTo) {
            if (::MoveFileExW(lpFrom, lpTo, MOVEFILE_REPLACE_EXISTING)) return 0;
            errno = ErrnoFromSystem();
            return -1;
        });
    });
}

int RemoveUtf8File(const CCmString& strPath) { return WithWidePath(strPath, ::_wunlink); }

int SyncDirectoryOf(const CCmString& /*strPath*/) { return 0; }

}  // namespace CmFile
