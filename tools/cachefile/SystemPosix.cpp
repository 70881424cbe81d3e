#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "tools/cachefile/System.h"

namespace {

volatile sig_atomic_t s_nInterrupted = 0;
int s_aWakePipe[2] = {-1, -1};  // readable from the first interrupt on

extern "C" void OnInterrupt(int /*nSignal*/) {
    const int nErrno = errno;
    s_nInterrupted = 1;
    if (::write(s_aWakePipe[1], "", 1) < 0) {
        // The pipe is full, so it is readable.
    }
    errno = nErrno;
}

void Handle(int nSignal, void (*pHandler)(int)) {
    struct sigaction aAction = {};
    aAction.sa_handler = pHandler;
    ::sigemptyset(&aAction.sa_mask);
    ::sigaction(nSignal, &aAction, nullptr);  // without SA_RESTART, so that waiting calls return
}

/// If a standard file is closed, the next file that is opened gets its number, and output is mixed.
/// Input from a closed descriptor fails; output to one is discarded.
void OpenStandardFiles() {
    for (int nFile = STDIN_FILENO; nFile <= STDERR_FILENO; ++nFile)
        if (::fcntl(nFile, F_GETFD) < 0 && ::open("/dev/null", O_WRONLY) != nFile) return;
}

/// A signal that the parent process ignores stays ignored.
void HandleInterrupt(int nSignal) {
    struct sigaction aBefore = {};
    ::sigaction(nSignal, nullptr, &aBefore);
    if (aBefore.sa_handler != SIG_IGN) Handle(nSignal, OnInterrupt);
}

}  // namespace

namespace System {

void Prepare() {
    OpenStandardFiles();
    Handle(SIGPIPE, SIG_IGN);
    Handle(SIGXFSZ, SIG_IGN);  // a write past the size limit fails instead
    if (::pipe(s_aWakePipe) == 0)
        for (const int nEnd : s_aWakePipe) {
            ::fcntl(nEnd, F_SETFL, O_NONBLOCK);
            ::fcntl(nEnd, F_SETFD, FD_CLOEXEC);
        }
    HandleInterrupt(SIGINT);
    HandleInterrupt(SIGTERM);
    HandleInterrupt(SIGHUP);
}

bool IsInterrupted() { return s_nInterrupted != 0; }

bool IsOutputTerminal() { return ::isatty(STDOUT_FILENO) != 0; }
bool IsErrorTerminal() { return ::isatty(STDERR_FILENO) != 0; }

int GetTerminalWidth() {
    struct winsize aSize = {};
    for (const int nFile : {STDOUT_FILENO, STDERR_FILENO})
        if (::ioctl(nFile, TIOCGWINSZ, &aSize) == 0 && aSize.ws_col > 0) return aSize.ws_col;
    return 80;
}

int WriteOutput(const char* lpData, std::size_t nLength) {
    struct stat aStat = {};
    const bool bFile = ::fstat(STDOUT_FILENO, &aStat) == 0 && S_ISREG(aStat.st_mode);
    while (nLength > 0) {
        // A pipe that poll reports as writable takes this many bytes without blocking.
        const std::size_t nPart = bFile ? nLength : std::min<std::size_t>(nLength, PIPE_BUF);
        struct pollfd aPolled[] = {{STDOUT_FILENO, POLLOUT, 0}, {s_aWakePipe[0], POLLIN, 0}};
        if (::poll(aPolled, 2, -1) < 0 && errno != EINTR) return errno;
        if (aPolled[0].revents == 0 && IsInterrupted()) return EINTR;
        if (aPolled[0].revents == 0) continue;
        const ssize_t nWritten = ::write(STDOUT_FILENO, lpData, nPart);
        if (nWritten < 0 && errno != EINTR && errno != EAGAIN) return errno;
        if (nWritten <= 0) continue;
        lpData += nWritten;
        nLength -= static_cast<std::size_t>(nWritten);
    }
    return 0;
}

bool IsClosedPipe(int nErrno) { return nErrno == EPIPE; }

std::string PathFault(const std::string& strPath) {
    if (strPath.empty()) return "a path cannot be empty";
    return strPath.find('\\') == std::string::npos ? "" : "a path cannot contain a backslash";
}

std::string Utf8Path(const std::string& strPath) { return strPath; }

long ProcessNumber() { return ::getpid(); }

bool MakeNewFile(const std::filesystem::path& aPath) {
    const int nFile = ::open(aPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    return nFile >= 0 && ::close(nFile) == 0;
}

bool CNewFile::Create(const std::filesystem::path& aPath) {
    for (;; Close()) {
        m_nFile = ::open(aPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (m_nFile < 0) return false;
        // Another process may have removed it as abandoned before it was locked.
        struct stat aStat = {};
        if (::flock(m_nFile, LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK) return true;
        } else if (::fstat(m_nFile, &aStat) != 0 || aStat.st_nlink > 0) {
            return true;
        }
    }
}

bool CNewFile::Write(const void* lpData, std::size_t nLength) {
    const auto* lpBytes = static_cast<const char*>(lpData);
    while (nLength > 0) {
        const ssize_t nWritten = ::write(m_nFile, lpBytes, nLength);
        if (nWritten < 0 && errno != EINTR) return false;
        if (nWritten < 0) continue;
        lpBytes += nWritten;
        nLength -= static_cast<std::size_t>(nWritten);
    }
    return true;
}

bool CNewFile::Sync() {
    int nResult = 0;
    do nResult = ::fsync(m_nFile);
    while (nResult != 0 && errno == EINTR);
    return nResult == 0 || errno == EINVAL || errno == ENOTSUP;
}

bool CNewFile::Close() {
    const int nFile = m_nFile;
    m_nFile = -1;
    return nFile < 0 || ::close(nFile) == 0;
}

void RemoveAbandoned(const std::filesystem::path& aPath) {
    const int nFile = ::open(aPath.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (nFile < 0) return;
    struct stat aOpened = {}, aNamed = {};
    // While it is locked, no new file can take its place: that file would need a free name.
    if (::fstat(nFile, &aOpened) == 0 && S_ISREG(aOpened.st_mode) &&
        ::flock(nFile, LOCK_EX | LOCK_NB) == 0 && ::lstat(aPath.c_str(), &aNamed) == 0 &&
        aOpened.st_dev == aNamed.st_dev && aOpened.st_ino == aNamed.st_ino)
        ::unlink(aPath.c_str());
    ::close(nFile);
}

CFileLock::~CFileLock() {
    if (m_nFile >= 0) ::close(static_cast<int>(m_nFile));
}

CFileLock::Outcome CFileLock::Take(const std::filesystem::path& aPath) {
    constexpr int c_nFlags = O_NONBLOCK | O_CLOEXEC;  // so that a FIFO does not block
    int nFile = ::open(aPath.c_str(), O_RDWR | O_CREAT | c_nFlags, 0666);
    if (nFile < 0) nFile = ::open(aPath.c_str(), O_RDONLY | c_nFlags);  // another user's
    if (nFile < 0) return Unknown;
    m_nFile = nFile;
    if (::flock(nFile, LOCK_EX | LOCK_NB) == 0) return Taken;
    return errno == EWOULDBLOCK ? Held : Unknown;
}

bool CFileLock::IsHeld(const std::filesystem::path& aPath) {
    const int nFile = ::open(aPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (nFile < 0) return false;
    const bool bHeld = ::flock(nFile, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(nFile);
    return bHeld;
}

namespace {

void RenameOnly(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace,
                std::error_code& aError) {
    if (!bReplace) {
        std::filesystem::create_hard_link(aFrom, aTo, aError);
        if (!aError) {
            std::filesystem::remove(aFrom, aError);
            return;
        }
        if (aError == std::errc::file_exists) return;
        // There are no hard links here, so it can only look first.
        if (std::filesystem::symlink_status(aTo, aError).type() !=
            std::filesystem::file_type::not_found) {
            aError = std::make_error_code(std::errc::file_exists);
            return;
        }
    }
    std::filesystem::rename(aFrom, aTo, aError);
}

/// Syncs the directory that holds aPath. A file system that cannot sync directories answers EINVAL;
/// there is nothing more to do there.
void SyncDirectoryOf(const std::filesystem::path& aPath, std::error_code& aError) {
    const std::filesystem::path aDirectory = aPath.has_parent_path() ? aPath.parent_path() : ".";
    const int nFile = ::open(aDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (nFile < 0 || (::fsync(nFile) != 0 && errno != EINVAL))
        aError = std::error_code(errno, std::generic_category());
    if (nFile >= 0) ::close(nFile);
}

}  // namespace

void Rename(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace,
            std::error_code& aError) {
    RenameOnly(aFrom, aTo, bReplace, aError);
    if (!aError) SyncDirectoryOf(aTo, aError);
}

CInput::~CInput() {
    if (m_bOwned && m_nFile >= 0) ::close(m_nFile);
}

bool CInput::Open(const std::string& strPath) {
    m_bOwned = strPath != "-";
    // Without O_NONBLOCK the open of a FIFO waits for its writer and holds up the other inputs.
    m_nFile = m_bOwned ? ::open(strPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : STDIN_FILENO;
    struct stat aStat = {};
    if (m_nFile < 0 || ::fstat(m_nFile, &aStat) != 0) return false;
    errno = S_ISDIR(aStat.st_mode) ? EISDIR : EBADF;
    return !S_ISDIR(aStat.st_mode) && (::fcntl(m_nFile, F_GETFL) & O_ACCMODE) != O_WRONLY;
}

std::optional<std::uint64_t> CInput::CountUnread() const {
    struct stat aStat = {};
    const off_t nAt = ::lseek(m_nFile, 0, SEEK_CUR);
    if (nAt < 0 || ::fstat(m_nFile, &aStat) != 0 || !S_ISREG(aStat.st_mode)) return {};
    return aStat.st_size > nAt ? static_cast<std::uint64_t>(aStat.st_size - nAt) : 0;
}

bool CInput::IsFile(const std::filesystem::path& aPath) const {
    struct stat aOwn = {}, aOther = {};
    return ::fstat(m_nFile, &aOwn) == 0 && ::stat(aPath.c_str(), &aOther) == 0 &&
           aOwn.st_dev == aOther.st_dev && aOwn.st_ino == aOther.st_ino;
}

long long CInput::Read(unsigned char* lpBuffer, std::size_t nLength) {
    const ssize_t nRead = ::read(m_nFile, lpBuffer, nLength);
    if (nRead >= 0) return nRead;
    const bool bNothingYet = errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK;
    return bNothingYet ? Read_NothingYet : Read_Failed;
}

void WaitForInputs(const std::vector<CInput*>& vecInputs, int nOther, int nMilliseconds,
                   std::vector<bool>& vecReady) {
    std::vector<struct pollfd> vecPolled;
    for (const CInput* pInput : vecInputs)
        vecPolled.push_back({pInput->GetDescriptor(), POLLIN, 0});
    vecPolled.push_back({nOther, POLLIN, 0});
    vecPolled.push_back({s_aWakePipe[0], POLLIN, 0});
    const int nReady =
        ::poll(vecPolled.data(), static_cast<nfds_t>(vecPolled.size()), nMilliseconds);
    vecReady.assign(vecInputs.size(), false);
    for (std::size_t i = 0; nReady > 0 && i < vecInputs.size(); ++i)
        vecReady[i] = vecPolled[i].revents != 0;
}

}  // namespace System
