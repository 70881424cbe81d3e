#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <sys/stat.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "tools/cachefile/System.h"

namespace {

std::atomic<bool> s_bInterrupted{false};

/// Runs on a thread of the system. A read from the console then returns by itself. If the console
/// is closed or the user logs off, the system ends the process when this returns, but at the latest
/// after some seconds. The process ends earlier if its main thread does.
BOOL WINAPI OnInterrupt(DWORD dwEvent) {
    s_bInterrupted = true;
    if (dwEvent != CTRL_C_EVENT && dwEvent != CTRL_BREAK_EVENT) ::Sleep(INFINITE);
    return TRUE;
}

int ErrnoOf(DWORD dwError) {
    switch (dwError) {
        case ERROR_FILE_EXISTS:
        case ERROR_ALREADY_EXISTS:
            return EEXIST;
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return ENOENT;
        case ERROR_DISK_FULL:
            return ENOSPC;
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
            return EACCES;
        default:
            return EIO;
    }
}

/// Makes the console understand colours. Returns false if it cannot.
bool ShowsColours(DWORD dwHandle) {
    const HANDLE hConsole = ::GetStdHandle(dwHandle);
    DWORD dwMode = 0;
    return ::GetConsoleMode(hConsole, &dwMode) &&
           ::SetConsoleMode(hConsole, dwMode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

/// If a standard file is closed, the next file that is opened gets its number, and output is mixed.
/// Input from a closed one fails; output to one is discarded.
void OpenStandardFiles() {
    for (int nFile = 0; nFile <= 2; ++nFile) {
        if (::_get_osfhandle(nFile) >= 0) continue;
        const int nNull = ::_wopen(L"NUL", _O_WRONLY | _O_BINARY);
        if (nNull < 0 || nNull == nFile) continue;
        ::_dup2(nNull, nFile);
        ::_close(nNull);
    }
}

}  // namespace

namespace System {

void Prepare() {
    OpenStandardFiles();
    for (const int nFile : {0, 1}) ::_setmode(nFile, _O_BINARY);
    // The console interprets output in its own code page, which is restored at the end.
    static const UINT s_nConsole = ::GetConsoleOutputCP();
    ::SetConsoleOutputCP(::GetACP());
    std::atexit([] { ::SetConsoleOutputCP(s_nConsole); });
    ::SetConsoleCtrlHandler(OnInterrupt, TRUE);
}

bool IsInterrupted() { return s_bInterrupted; }

bool IsOutputTerminal() { return ::_isatty(1) && ShowsColours(STD_OUTPUT_HANDLE); }
bool IsErrorTerminal() { return ::_isatty(2) && ShowsColours(STD_ERROR_HANDLE); }

int GetTerminalWidth() {
    CONSOLE_SCREEN_BUFFER_INFO aInfo;
    if (!::GetConsoleScreenBufferInfo(::GetStdHandle(STD_OUTPUT_HANDLE), &aInfo)) return 80;
    return aInfo.srWindow.Right - aInfo.srWindow.Left + 1;
}

int WriteOutput(const char* lpData, std::size_t nLength) {
    while (nLength > 0) {
        const auto nPart = static_cast<unsigned int>(nLength < 65536 ? nLength : 65536);
        const int nWritten = ::_write(1, lpData, nPart);
        if (nWritten <= 0) return errno;
        lpData += nWritten;
        nLength -= static_cast<std::size_t>(nWritten);
    }
    return 0;
}

/// The runtime reports a broken pipe as an invalid argument.
bool IsClosedPipe(int nErrno) { return nErrno == EPIPE || nErrno == EINVAL; }

std::string PathFault(const std::string& strPath) {
    return strPath.empty() ? "a path cannot be empty" : "";
}

std::string Utf8Path(const std::string& strPath) {
    const int nWide = ::MultiByteToWideChar(CP_ACP, 0, strPath.c_str(), -1, nullptr, 0);
    std::wstring strWide(nWide > 0 ? static_cast<std::size_t>(nWide - 1) : 0, L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, strPath.c_str(), -1, strWide.data(), nWide);
    return std::filesystem::path(strWide).u8string();
}

long ProcessNumber() { return ::_getpid(); }

bool MakeNewFile(const std::filesystem::path& aPath) {
    const int nFile =
        ::_wopen(aPath.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
    return nFile >= 0 && ::_close(nFile) == 0;
}

/// The share mode locks the file against other writers. Reading, renaming and removing are shared.
bool CNewFile::Create(const std::filesystem::path& aPath) {
    const HANDLE hFile =
        ::CreateFileW(aPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                      CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (hFile == INVALID_HANDLE_VALUE) {
        errno = ErrnoOf(::GetLastError());
        return false;
    }
    m_nFile = ::_open_osfhandle(reinterpret_cast<intptr_t>(hFile), _O_BINARY | _O_NOINHERIT);
    if (m_nFile < 0) ::CloseHandle(hFile);
    return m_nFile >= 0;
}

bool CNewFile::Write(const void* lpData, std::size_t nLength) {
    const auto* lpBytes = static_cast<const char*>(lpData);
    while (nLength > 0) {
        const auto nPart = static_cast<unsigned int>(nLength < 0x40000000 ? nLength : 0x40000000);
        const int nWritten = ::_write(m_nFile, lpBytes, nPart);
        if (nWritten <= 0) return false;
        lpBytes += nWritten;
        nLength -= static_cast<std::size_t>(nWritten);
    }
    return true;
}

bool CNewFile::Sync() { return ::_commit(m_nFile) == 0; }

bool CNewFile::Close() {
    const int nFile = m_nFile;
    m_nFile = -1;
    return nFile < 0 || ::_close(nFile) == 0;
}

void RemoveAbandoned(const std::filesystem::path& aPath) {
    // The open succeeds only if no other process has the file open. The close removes the file.
    const HANDLE hFile =
        ::CreateFileW(aPath.c_str(), DELETE, 0, nullptr, OPEN_EXISTING,
                      FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (hFile != INVALID_HANDLE_VALUE) ::CloseHandle(hFile);
}

CFileLock::~CFileLock() {
    if (m_nFile != -1) ::CloseHandle(reinterpret_cast<HANDLE>(m_nFile));
}

CFileLock::Outcome CFileLock::Take(const std::filesystem::path& aPath) {
    const HANDLE hFile = ::CreateFileW(aPath.c_str(), GENERIC_READ | GENERIC_WRITE,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                       nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    m_nFile = reinterpret_cast<std::intptr_t>(hFile);  // -1 for none
    OVERLAPPED aPlace = {};
    if (hFile != INVALID_HANDLE_VALUE &&
        ::LockFileEx(hFile, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &aPlace))
        return Taken;
    const DWORD dwError = ::GetLastError();
    errno = ErrnoOf(dwError);
    return dwError == ERROR_LOCK_VIOLATION || dwError == ERROR_IO_PENDING ? Held : Unknown;
}

bool CFileLock::IsHeld(const std::filesystem::path& aPath) {
    const HANDLE hFile = ::CreateFileW(aPath.c_str(), GENERIC_READ,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                       nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (hFile == INVALID_HANDLE_VALUE) return false;
    OVERLAPPED aPlace = {};
    const bool bTaken = ::LockFileEx(hFile, LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &aPlace) != 0;
    const DWORD dwError = ::GetLastError();
    ::CloseHandle(hFile);
    return !bTaken && (dwError == ERROR_LOCK_VIOLATION || dwError == ERROR_IO_PENDING);
}

void Rename(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace,
            std::error_code& aError) {
    aError.clear();
    if (::MoveFileExW(aFrom.c_str(), aTo.c_str(), bReplace ? MOVEFILE_REPLACE_EXISTING : 0)) return;
    const DWORD dwError = ::GetLastError();
    if (dwError == ERROR_ALREADY_EXISTS || dwError == ERROR_FILE_EXISTS)
        aError = std::make_error_code(std::errc::file_exists);
    else
        aError.assign(static_cast<int>(dwError), std::system_category());
}

CInput::~CInput() {
    if (m_bOwned) ::_close(m_nFile);
}

bool CInput::Open(const std::string& strPath) {
    if (strPath == "-") {
        m_nFile = 0;
        return true;
    }
    m_nFile = ::_wopen(NativePath(strPath).c_str(), _O_RDONLY | _O_BINARY | _O_NOINHERIT);
    m_bOwned = m_nFile >= 0;
    return m_bOwned;
}

std::optional<std::uint64_t> CInput::CountUnread() const {
    const auto hFile = reinterpret_cast<HANDLE>(::_get_osfhandle(m_nFile));
    if (::GetFileType(hFile) != FILE_TYPE_DISK) return {};
    const long long nSize = ::_filelengthi64(m_nFile), nAt = ::_telli64(m_nFile);
    if (nSize < 0 || nAt < 0) return {};
    return nSize > nAt ? static_cast<std::uint64_t>(nSize - nAt) : 0;
}

bool CInput::IsFile(const std::filesystem::path& aPath) const {
    const auto hOwn = reinterpret_cast<HANDLE>(::_get_osfhandle(m_nFile));
    const HANDLE hOther =
        ::CreateFileW(aPath.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, 0, nullptr);
    if (hOther == INVALID_HANDLE_VALUE) return false;
    BY_HANDLE_FILE_INFORMATION aOwn = {}, aOther = {};
    const bool bSame = ::GetFileInformationByHandle(hOwn, &aOwn) &&
                       ::GetFileInformationByHandle(hOther, &aOther) &&
                       aOwn.dwVolumeSerialNumber == aOther.dwVolumeSerialNumber &&
                       aOwn.nFileIndexHigh == aOther.nFileIndexHigh &&
                       aOwn.nFileIndexLow == aOther.nFileIndexLow;
    ::CloseHandle(hOther);
    return bSame;
}

long long CInput::Read(unsigned char* lpBuffer, std::size_t nLength) {
    const unsigned int nPart =
        nLength < 0x40000000 ? static_cast<unsigned int>(nLength) : 0x40000000;
    const int nRead = ::_read(m_nFile, lpBuffer, nPart);
    if (nRead >= 0) return nRead;
    return errno == EINTR ? Read_NothingYet : Read_Failed;
}

namespace {

/// Pipes are looked at. A console may be readable because of an event that is no text; the read
/// then waits for a line. All other files can be read at once.
bool CanRead(int nFile) {
    const auto hFile = reinterpret_cast<HANDLE>(::_get_osfhandle(nFile));
    DWORD dwAvailable = 0, dwMode = 0;
    // The read of a broken pipe reports its end. Wine cannot look at a pipe of its host system (the
    // error is ERROR_INVALID_HANDLE), so there the read waits.
    if (::GetFileType(hFile) == FILE_TYPE_PIPE)
        return !::PeekNamedPipe(hFile, nullptr, 0, nullptr, &dwAvailable, nullptr) ||
               dwAvailable > 0;
    return !::GetConsoleMode(hFile, &dwMode) || ::WaitForSingleObject(hFile, 0) == WAIT_OBJECT_0;
}

}  // namespace

/// No call of the system waits for pipes, so they are looked at again and again.
void WaitForInputs(const std::vector<CInput*>& vecInputs, int /*nOther*/, int nMilliseconds,
                   std::vector<bool>& vecReady) {
    constexpr DWORD c_dwLook = 10;  // milliseconds
    const ULONGLONG qwBegin = ::GetTickCount64();
    vecReady.assign(vecInputs.size(), false);
    for (bool bReady = false;; ::Sleep(c_dwLook)) {
        for (std::size_t i = 0; i < vecInputs.size(); ++i) {
            vecReady[i] = CanRead(vecInputs[i]->GetDescriptor());
            bReady = bReady || vecReady[i];
        }
        const ULONGLONG qwPassed = ::GetTickCount64() - qwBegin;
        if (bReady || IsInterrupted()) return;
        if (nMilliseconds >= 0 && qwPassed >= static_cast<ULONGLONG>(nMilliseconds)) return;
    }
}

}  // namespace System
