#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// What the tool needs of the operating system: one source file per system, and no trace of it
/// anywhere else.
namespace System {

/// The first call of the process. Opens the null device in place of standard files that are
/// closed, turns newline translation off, makes a closed pipe a failed write instead of a signal,
/// and notes interrupts (IsInterrupted), which also end a wait.
void Prepare();

bool IsInterrupted();

bool IsOutputTerminal();
bool IsErrorTerminal();
/// Columns of the terminal, 80 if there is none.
int GetTerminalWidth();

/// Writes to standard output and waits for its reader. 0, or the reason as in errno; 4
/// (interrupted) when the process is interrupted and the reader takes nothing.
int WriteOutput(const char* lpData, std::size_t nLength);

/// Whether a write failed because nobody reads the other end any more.
bool IsClosedPipe(int nErrno);

/// Why the library can't be given this path, or an empty text.
std::string PathFault(const std::string& strPath);

/// A path as it was given on the command line, in UTF-8.
std::string Utf8Path(const std::string& strPath);
inline std::filesystem::path NativePath(const std::string& strPath) {
    return std::filesystem::u8path(Utf8Path(strPath));
}

/// The number of this process.
long ProcessNumber();

/// Makes an empty file where nothing is, not even a link. False with errno on failure.
bool MakeNewFile(const std::filesystem::path& aPath);

/// A new file that this process alone writes. It is locked until it is closed, so another process
/// can find out whether its writer is still at work. Functions return false with errno on failure.
class CNewFile {
 public:
    CNewFile() = default;
    ~CNewFile() { Close(); }
    CNewFile(const CNewFile&) = delete;
    CNewFile& operator=(const CNewFile&) = delete;

    /// Makes the file where nothing is, not even a link. Where the file system has no locks, the
    /// file is made without one.
    bool Create(const std::filesystem::path& aPath);
    bool Write(const void* lpData, std::size_t nLength);
    /// Waits until the disk has the bytes. A file that cannot be synced by its kind counts as done.
    bool Sync();
    bool Close();

 private:
    int m_nFile = -1;
};

/// Removes a regular file that no CNewFile of any process holds. Does nothing when that is unknown.
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

    /// Makes the file if it is missing, and locks it without waiting. Held: another process has
    /// the lock. Unknown, with errno: the file cannot be made, or its file system has no locks.
    Outcome Take(const std::filesystem::path& aPath);

 private:
    std::intptr_t m_nFile = -1;
};

/// Gives a file its final name. Without bReplace it fails where something has that name already,
/// with an error of file_exists.
void Rename(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace,
            std::error_code& aError);

/// Ends the process at once, with other threads still at work.
[[noreturn]] void EndNow(int nExit);

/// A source of bytes that may have to be waited for: a file, a pipe, standard input ("-").
class CInput {
 public:
    CInput() = default;
    ~CInput();
    CInput(const CInput&) = delete;
    CInput& operator=(const CInput&) = delete;

    /// False with errno on failure. What cannot be read at all (a directory, a closed standard
    /// input) fails here.
    bool Open(const std::string& strPath);

    /// How many bytes a file has from the place on that is read next; nothing for what is no file.
    std::optional<std::uint64_t> CountUnread() const;

    /// Whether aPath is the file that is read, whatever name it was opened by.
    bool IsFile(const std::filesystem::path& aPath) const;

    /// The bytes that are there, at most nLength; 0 at the end, -1 with errno on failure, -2 when
    /// there are none yet.
    long long Read(unsigned char* lpBuffer, std::size_t nLength);

    int GetDescriptor() const { return m_nFile; }

 private:
    int m_nFile = -1;
    bool m_bOwned = false;
};

/// Waits until one of the inputs can be read, the other descriptor (-1: none) is readable, or the
/// process is interrupted. Sets for each input whether it can be read. Where a system can't wait
/// for several, each is said to be readable, and the read waits.
void WaitForInputs(const std::vector<CInput*>& vecInputs, int nOther, std::vector<bool>& vecReady);

}  // namespace System
