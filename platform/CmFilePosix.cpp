#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <new>

#include "platform/CmFile.h"
#include "platform/CmFilePosix.h"

namespace {

/// Converts a path to the form of the system. Get returns null, with errno set, if this fails. Only
/// this class converts backslashes to slashes. It allocates no memory, so an unfinished file can be
/// removed after an allocation has failed. The system accepts no paths that are longer than its
/// buffer.
class CNativePath {
 public:
    explicit CNativePath(const CCmString& strPath) {
        errno = 0;
        // The system would read a path with a zero byte only up to that byte: another file.
        if (strPath.find('\0') != CCmString::npos)
            errno = EINVAL;
        else if (strPath.size() >= sizeof m_aText)
            errno = ENAMETOOLONG;
        else
            m_bValid = true;
        if (!m_bValid) return;
        std::replace_copy(strPath.begin(), strPath.end(), m_aText, '\\', '/');
        m_aText[strPath.size()] = '\0';
    }
    const char* Get() const { return m_bValid ? m_aText : nullptr; }

 private:
    char m_aText[PATH_MAX];
    bool m_bValid = false;
};

/// Returns whether the file is a regular file or a character device. Others are refused: a FIFO
/// would block, and a directory has no bytes.
bool IsFileLike(int nFile) {
    struct stat aStatus;
    if (Repeated([&] { return ::fstat(nFile, &aStatus); }) != 0) return false;
    if (S_ISCHR(aStatus.st_mode)) return ::fcntl(nFile, F_SETFL, 0) == 0;
    if (S_ISREG(aStatus.st_mode)) return true;
    errno = S_ISDIR(aStatus.st_mode) ? EISDIR : EINVAL;
    return false;
}

std::FILE* ToStream(int nFile, const char* lpMode) {
    std::FILE* const pStream = IsFileLike(nFile) ? ::fdopen(nFile, lpMode) : nullptr;
    if (pStream && std::setvbuf(pStream, nullptr, _IONBF, 0) == 0) return pStream;
    const int nReason = errno;
    if (pStream)
        (void)std::fclose(pStream);
    else
        ::close(nFile);
    errno = nReason;
    return nullptr;
}

/// Returns the new position, or -1. The streams have no buffer, so the system is called directly.
/// The stream itself would make more than one system call for each block.
std::int64_t MoveTo(std::FILE* pStream, std::int64_t nPosition, int nWhence) {
    static_assert(sizeof(off_t) == 8, "positions are 64 bits wide");
    errno = 0;
    return Repeated([&] { return ::lseek(::fileno(pStream), nPosition, nWhence); });
}

struct tagDone {
    std::size_t dwDone;  // bytes
    ssize_t nLast;       // the result of the last call
};

/// Transfers dwLength bytes with as many calls as are needed. aCall receives the number of bytes
/// that are done and the number that remain. It returns the number of bytes that it transferred, 0
/// at the end of the file, or -1.
template <class Call>
tagDone InParts(std::size_t dwLength, Call aCall) {
    errno = 0;
    tagDone aDone{0, 1};
    while (aDone.dwDone < dwLength) {
        aDone.nLast = Repeated([&] { return aCall(aDone.dwDone, dwLength - aDone.dwDone); });
        if (aDone.nLast <= 0) break;
        aDone.dwDone += static_cast<std::size_t>(aDone.nLast);
    }
    return aDone;
}

/// Reads of more bytes are limited to what remains of the file. Smaller ones save the system call
/// that asks for it.
constexpr std::size_t c_nMaxUnlimitedRead = 0x40000000;

/// Returns how many bytes a read of dwLength bytes at nPosition asks the system for. Some systems
/// check the whole buffer before they read: those with 32 bits, and emulators. A caller that passes
/// the largest length to read up to the end of the file may have a smaller buffer.
std::size_t UpToEnd(int nFile, std::int64_t nPosition, std::size_t dwLength) {
    struct stat aStatus;
    if (dwLength <= c_nMaxUnlimitedRead || nPosition < 0 ||
        Repeated([&] { return ::fstat(nFile, &aStatus); }) != 0 || !S_ISREG(aStatus.st_mode))
        return dwLength;
    const auto nRest = std::max<std::int64_t>(aStatus.st_size - nPosition, 0);
    return static_cast<std::size_t>(std::min<std::uint64_t>(dwLength, std::uint64_t(nRest)));
}

/// Reads dwPart bytes of the dwLength bytes that the caller asks for. If that is less, the end of
/// the file follows.
template <class Call>
tagDone ReadInParts(std::size_t dwLength, std::size_t dwPart, Call aCall) {
    tagDone aDone = InParts(dwPart, aCall);
    if (aDone.nLast > 0 && dwPart < dwLength) aDone.nLast = 0;
    return aDone;
}

/// Makes a system call that takes a path and returns -1 on failure.
template <class Call>
int WithPath(const CCmString& strPath, Call aCall) {
    const CNativePath aNative(strPath);
    return aNative.Get() ? Repeated([&] { return aCall(aNative.Get()); }) : -1;
}

/// The same for a call that also takes the directory to which the path is relative.
template <class Call>
int WithPlace(const CmPlace& aPlace, const CCmString& strPath, Call aCall) {
    const int nDirectory = aPlace.Directory() ? aPlace.Directory()->nFile : AT_FDCWD;
    return WithPath(strPath, [&](const char* lpPath) {
        errno = aPlace.Error();
        return errno == 0 ? aCall(nDirectory, lpPath) : -1;
    });
}

/// Opens a file on which another process has a lease, and waits until the lease is released. The
/// path is resolved first without opening the file, so that it waits only for a regular file.
/// Without /proc it fails like an open that does not wait.
int OpenLeased(int nDirectory, const char* lpPath, int nFlags) {
    const int nFound = Repeated([&] { return ::openat(nDirectory, lpPath, O_PATH | O_CLOEXEC); });
    int nFile = -1;
    int nReason = EWOULDBLOCK;
    struct stat aStatus;
    if (nFound >= 0 && Repeated([&] { return ::fstat(nFound, &aStatus); }) == 0 &&
        S_ISREG(aStatus.st_mode)) {
        char aText[32];
        (void)std::snprintf(aText, sizeof aText, "/proc/self/fd/%d", nFound);
        const int nAgain = nFlags & ~(O_CREAT | O_NONBLOCK);
        nFile = Repeated([&] { return ::openat(AT_FDCWD, aText, nAgain); });
        if (errno != ENOENT) nReason = errno;
    }
    if (nFound >= 0) ::close(nFound);
    errno = nReason;
    return nFile;
}

/// O_NONBLOCK, because the open of a FIFO would wait until another process opens it too.
int OpenFile(int nDirectory, const char* lpPath, int nFlags) {
    const int nFile =
        Repeated([&] { return ::openat(nDirectory, lpPath, nFlags | O_NONBLOCK, 0666); });
    return nFile < 0 && errno == EWOULDBLOCK ? OpenLeased(nDirectory, lpPath, nFlags) : nFile;
}

/// Returns the part of a path before its last name, with the separator; "." if there is none.
CCmString DirectoryOf(const CCmString& strPath) {
    const std::size_t nSeparator = strPath.find_last_of("\\/");
    return nSeparator == CCmString::npos ? "." : strPath.substr(0, nSeparator + 1);
}

/// Makes a system call that syncs. It counts as successful if this kind of file cannot be synced.
template <class Call>
int Synced(Call aCall) {
    errno = 0;
    const int nResult = Repeated(aCall);
    return nResult != 0 && (errno == EINVAL || errno == ENOTSUP) ? 0 : nResult;
}

}  // namespace

namespace CmFile {

bool CanConvert(const CCmString& strPath, PathText aText) {
    return aText == Path_Local || !strPath.empty();
}

std::FILE* Open(const CCmString& strPath, OpenMode aMode, PathText aText, const CmPlace& aPlace) {
    if (!CanConvert(strPath, aText)) {
        errno = EINVAL;
        return nullptr;
    }
    int nFlags = O_CLOEXEC | (aMode == Open_Read ? O_RDONLY : O_RDWR | O_CREAT);
    if (aMode == Open_Write) nFlags |= O_TRUNC;
    if (aMode == Open_New) nFlags |= O_EXCL;
    const int nFile = WithPlace(aPlace, strPath, [&](int nDirectory, const char* lpPath) {
        return OpenFile(nDirectory, lpPath, nFlags);
    });
    if (nFile < 0) return nullptr;
    std::FILE* const pStream = ToStream(nFile, aMode == Open_Read ? "rb" : "wb+");
    if (!pStream && aMode == Open_New) {
        const int nReason = errno;
        WithPlace(aPlace, strPath, [](int nDirectory, const char* lpPath) {
            return ::unlinkat(nDirectory, lpPath, 0);
        });
        errno = nReason;
    }
    return pStream;
}

int Close(std::FILE* pStream) {
    errno = 0;
    return std::fclose(pStream);
}

int Seek(std::FILE* pStream, std::int64_t nPosition) {
    return MoveTo(pStream, nPosition, SEEK_SET) < 0 ? -1 : 0;
}

std::size_t Write(std::FILE* pStream, const void* lpData, std::size_t dwLength) {
    return InParts(dwLength,
                   [&](std::size_t dwDone, std::size_t dwPart) {
                       const ssize_t nPart = ::write(
                           ::fileno(pStream), static_cast<const char*>(lpData) + dwDone, dwPart);
                       if (nPart == 0) errno = ENOSPC;
                       return nPart;
                   })
        .dwDone;
}

std::size_t WriteBlocks(std::FILE* pStream, const tagBlock* pBlocks, std::size_t nCount) {
    if (nCount == 1) return Write(pStream, pBlocks->lpData, pBlocks->nLength);
    iovec aVectors[c_nMaxBlocks];
    for (std::size_t i = 0; i < nCount; ++i) {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): writev does not change the bytes
        aVectors[i] = {const_cast<char*>(pBlocks[i].lpData), pBlocks[i].nLength};
    }
    errno = 0;
    const ssize_t nWritten =
        Repeated([&] { return ::writev(::fileno(pStream), aVectors, static_cast<int>(nCount)); });
    if (nWritten == 0) errno = ENOSPC;
    std::size_t nRest = nWritten > 0 ? static_cast<std::size_t>(nWritten) : 0;
    const std::size_t nAll = nRest;
    for (; nRest > 0 && nRest >= pBlocks->nLength; ++pBlocks) nRest -= pBlocks->nLength;
    if (nRest == 0) return nAll;
    return nAll + Write(pStream, pBlocks->lpData + nRest, pBlocks->nLength - nRest);
}

int CutBack(std::FILE* pStream, std::int64_t nSize) {
    const std::int64_t nStopped = MoveTo(pStream, 0, SEEK_CUR);
    if (nStopped == nSize) return 0;
    const int nFile = ::fileno(pStream);
    struct stat aStatus;
    if (nStopped < 0 || Repeated([&] { return ::fstat(nFile, &aStatus); }) != 0) return -1;
    errno = 0;
    if (!S_ISREG(aStatus.st_mode) || aStatus.st_size != nStopped || nStopped < nSize) return -1;
    return Repeated([&] { return ::ftruncate(nFile, nSize); });
}

std::size_t Read(std::FILE* pStream, void* lpBuffer, std::size_t dwLength, bool& bEnd) {
    const int nFile = ::fileno(pStream);
    const bool bLarge = dwLength > c_nMaxUnlimitedRead;
    const std::int64_t nPosition = bLarge ? MoveTo(pStream, 0, SEEK_CUR) : 0;
    const auto aRead = [&](std::size_t dwDone, std::size_t dwPart) {
        return ::read(nFile, static_cast<char*>(lpBuffer) + dwDone, dwPart);
    };
    const tagDone aDone = ReadInParts(dwLength, UpToEnd(nFile, nPosition, dwLength), aRead);
    bEnd = aDone.nLast == 0;
    return aDone.dwDone;
}

ReadEnd ReadAt(std::FILE* pStream, std::int64_t nPosition, void* lpBuffer, std::size_t dwLength,
               std::size_t& dwRead) {
    const int nFile = ::fileno(pStream);
    const auto aRead = [&](std::size_t dwDone, std::size_t dwPart) {
        return ::pread(nFile, static_cast<char*>(lpBuffer) + dwDone, dwPart,
                       nPosition + static_cast<off_t>(dwDone));
    };
    const tagDone aDone = ReadInParts(dwLength, UpToEnd(nFile, nPosition, dwLength), aRead);
    dwRead = aDone.dwDone;
    if (aDone.nLast > 0) return Read_Whole;
    if (aDone.nLast == 0) return Read_AtEnd;
    const bool bBadPosition = errno == EBADF || errno == EINVAL || errno == ESPIPE;
    return bBadPosition && dwRead == 0 ? Read_BadPosition : Read_Failed;
}

int Flush(std::FILE* pStream) {
    errno = 0;
    return std::fflush(pStream);
}

int Sync(std::FILE* pStream) {
    errno = 0;
    return Repeated([&] { return ::fsync(::fileno(pStream)); });
}

int DescriptorOf(std::FILE* pStream) { return ::fileno(pStream); }

int Duplicate(std::FILE* pStream) {
    errno = 0;
    return ::fcntl(::fileno(pStream), F_DUPFD_CLOEXEC, 0);
}

int SyncData(int nFile) {
    return Synced([&] { return ::fdatasync(nFile); });
}

void StartWriteBack([[maybe_unused]] int nFile) {
#ifdef SYNC_FILE_RANGE_WRITE
    (void)::sync_file_range(nFile, 0, 0, SYNC_FILE_RANGE_WRITE);
#endif
}

int OpenDirectoryOf(const CCmString& strPath, const CmPlace& aPlace, int nFile, tagFileId& aId) {
    struct stat aFound;
    struct stat aStatus;
    const auto isFile = [&](int nPlace, const char* lpPath) {
        const bool bRead =
            ::fstatat(nPlace, lpPath, &aFound, 0) == 0 && ::fstat(nFile, &aStatus) == 0;
        if (!bRead) return -1;
        if (aFound.st_dev == aStatus.st_dev && aFound.st_ino == aStatus.st_ino) return 0;
        errno = ENOENT;
        return -1;
    };
    if (nFile >= 0 && WithPlace(aPlace, strPath, isFile) != 0) return -1;
    const CCmString strDirectory = DirectoryOf(strPath);
    const int nDirectory = WithPlace(aPlace, strDirectory, [](int nPlace, const char* lpPath) {
        return ::openat(nPlace, lpPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    });
    if (nDirectory < 0 || Repeated([&] { return ::fstat(nDirectory, &aStatus); }) != 0) {
        const int nReason = errno;
        if (nDirectory >= 0) ::close(nDirectory);
        errno = nReason;
        return -1;
    }
    aId = {aStatus.st_dev, aStatus.st_ino};
    return nDirectory;
}

int SyncDirectory(int nDirectory) {
    return Synced([&] { return ::fsync(nDirectory); });
}

int CloseDescriptor(int nDescriptor) {
    errno = 0;
    return ::close(nDescriptor);
}

int FreeSpace(std::FILE* pStream, std::uint64_t& qwBytes) {
    errno = 0;
    struct statvfs aStatus;
    if (Repeated([&] { return ::fstatvfs(::fileno(pStream), &aStatus); }) != 0) return -1;
    qwBytes = std::uint64_t{aStatus.f_bavail} * aStatus.f_frsize;
    return 0;
}

std::int64_t Size(std::FILE* pStream) { return MoveTo(pStream, 0, SEEK_END); }

bool Exists(const CCmString& strPath, const CmPlace& aPlace) {
    return WithPlace(aPlace, strPath, [](int nDirectory, const char* lpPath) {
               return ::faccessat(nDirectory, lpPath, F_OK, 0);
           }) == 0;
}

int MakeDirectory(const CCmString& strPath, const CmPlace& aPlace) {
    return WithPlace(aPlace, strPath, [](int nDirectory, const char* lpPath) {
        return ::mkdirat(nDirectory, lpPath, 0777);
    });
}

int RemoveFile(const CCmString& strPath) {
    return WithPath(strPath, [](const char* lpPath) { return ::unlink(lpPath); });
}

int RemoveEmptyDirectory(const CCmString& strPath) {
    return WithPath(strPath, [](const char* lpPath) { return ::rmdir(lpPath); });
}

int RenameOver(const CCmString& strFrom, const CCmString& strTo) {
    return WithPath(strFrom, [&](const char* lpFrom) {
        const CNativePath aTo(strTo);
        return aTo.Get() ? std::rename(lpFrom, aTo.Get()) : -1;
    });
}

int RemoveUtf8File(const CCmString& strPath) { return RemoveFile(strPath); }

int SyncDirectoryOf(const CCmString& strPath) try {
    const int nFile = WithPath(DirectoryOf(strPath), [](const char* lpPath) {
        return ::openat(AT_FDCWD, lpPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    });
    if (nFile < 0) return -1;
    const int nResult = SyncDirectory(nFile);
    const int nReason = errno;
    ::close(nFile);
    errno = nReason;
    return nResult;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
}

}  // namespace CmFile
