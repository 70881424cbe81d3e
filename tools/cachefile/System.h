#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// The calls of the operating system that the tool needs. Each system has its own source file; the
/// other files of the tool are the same everywhere.
namespace System {

/// Must be called first. Opens the null device in place of closed standard files, turns newline
/// translation off, makes writes to a closed pipe fail instead of raising a signal, and starts to
/// record interrupts (IsInterrupted), which also end a wait.
void Prepare();

bool IsInterrupted();

bool IsOutputTerminal();
bool IsErrorTerminal();
/// The width of the terminal in columns; 80 without a terminal.
int GetTerminalWidth();

/// Writes to standard output and waits for its reader. Returns 0 or an errno value; 4 (EINTR) if
/// the process is interrupted while the reader does not read.
int WriteOutput(const char* lpData, std::size_t nLength);

/// Whether a write failed because the reader has closed the pipe.
bool IsClosedPipe(int nErrno);

/// The reason why the library does not accept this path, or an empty text.
std::string PathFault(const std::string& strPath);

/// Converts a path of the command line to UTF-8.
std::string Utf8Path(const std::string& strPath);
inline std::filesystem::path NativePath(const std::string& strPath) {
    return std::filesystem::u8path(Utf8Path(strPath));
}

/// The number of this process.
long ProcessNumber();

/// Creates an empty file; fails if the path exists, even as a link. Returns false with errno.
bool MakeNewFile(const std::filesystem::path& aPath);

/// A new file that only this process writes. It is locked until it is closed, so other processes
/// can find out whether its writer still runs. Functions return false with errno on failure.
class CNewFile {
 public:
    CNewFile() = default;
    ~CNewFile() { Close(); }
    CNewFile(const CNewFile&) = delete;
    CNewFile& operator=(const CNewFile&) = delete;

    /// Creates the file; fails if the path exists, even as a link. If the file system has no locks,
    /// the file is created without one.
    bool Create(const std::filesystem::path& aPath);
    bool Write(const void* lpData, std::size_t nLength);
    /// Waits until the disk has the bytes. Succeeds for kinds of files that cannot be synced.
    bool Sync();
    bool Close();

 private:
    int m_nFile = -1;
};

/// Removes a regular file unless a CNewFile of any process has it open, or this is unknown.
void RemoveAbandoned(const std::filesystem::path& aPath);

/// An exclusive lock on a file. The system releases it when the process ends; the file stays.
/// Child processes do not inherit it.
class CFileLock {
 public:
    enum Outcome { Taken, Held, Unknown };

    CFileLock() = default;
    ~CFileLock();
    CFileLock(const CFileLock&) = delete;
    CFileLock& operator=(const CFileLock&) = delete;

    /// Creates the file if it is missing, and locks it without waiting. Held: another process has
    /// the lock. Unknown, with errno: the file cannot be created, or its file system has no locks.
    Outcome Take(const std::filesystem::path& aPath);

    /// Whether any process has the lock now. Creates nothing. A Take of another process at the same
    /// moment may return Held.
    static bool IsHeld(const std::filesystem::path& aPath);

 private:
    std::intptr_t m_nFile = -1;
};

/// Gives a file its final name. If bReplace is false and the name exists, the error is file_exists.
/// On POSIX the directory is synced too, so that the name survives a power cut. If that fails, the
/// file has its name and aError says why.
void Rename(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace,
            std::error_code& aError);

/// A source of bytes: a file, a pipe, or standard input ("-").
class CInput {
 public:
    CInput() = default;
    ~CInput();
    CInput(const CInput&) = delete;
    CInput& operator=(const CInput&) = delete;

    /// Returns false with errno on failure, also for a directory and a closed standard input.
    bool Open(const std::string& strPath);

    /// How many bytes a file has after the current position; nothing if it is not a regular file.
    std::optional<std::uint64_t> CountUnread() const;

    /// Whether aPath is the same file, even under another name.
    bool IsFile(const std::filesystem::path& aPath) const;

    /// What Read returns if it has read no bytes.
    enum : long long {
        Read_End = 0,
        Read_Failed = -1,      ///< with errno
        Read_NothingYet = -2,  ///< the pipe is empty, or a signal interrupted the call
    };

    /// Reads the available bytes, at most nLength, and returns their number, or one of the above.
    long long Read(unsigned char* lpBuffer, std::size_t nLength);

    int GetDescriptor() const { return m_nFile; }

 private:
    int m_nFile = -1;
    bool m_bOwned = false;
};

/// Waits until one of the inputs can be read, the other descriptor (-1: none) is readable, the
/// process is interrupted, or the time (in milliseconds, -1: any) has passed. Sets for each input
/// whether it can be read. On Windows it looks at the inputs a hundred times a second, and nOther
/// is not used.
void WaitForInputs(const std::vector<CInput*>& vecInputs, int nOther, int nMilliseconds,
                   std::vector<bool>& vecReady);

}  // namespace System
