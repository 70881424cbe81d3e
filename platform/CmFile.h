#pragma once

#include <cstdint>
#include <cstdio>

#include "platform/CmPlace.h"
#include "platform/CmTypes.h"

/// The calls of the file system that the library uses. The differences between systems are handled
/// here. Paths are in the library's form, with the backslash as the separator. If the separator of
/// the system is the slash, paths are converted only here.
///
/// A relative path is relative to the current directory, or to the place that is given.
///
/// On systems other than POSIX a path in the system's form needs memory. If there is none, Open
/// throws, and the other calls fail with errno 12.
///
/// A system call that a signal interrupts is repeated, except a close. Nothing else is repeated.
///
/// Each call first sets errno to 0. After a failure errno is the reason of that call, or 0 if the
/// runtime gave none. Numbers: 2 not found, 13 denied, 17 exists, 28 no space left.
namespace CmFile {

enum OpenMode {
    Open_Read,
    Open_Write,  // created or emptied; readable too
    Open_New,    // as Open_Write, but errno 17 if there is one, and on failure there is none
};
enum PathText { Path_Local, Path_Utf8 };  // the system's own encoding; UTF-8 everywhere

/// Returns whether the path can be passed to the system. An empty UTF-8 path cannot. Invalid UTF-8
/// cannot if the system has wide characters. All other paths can.
bool CanConvert(const CCmString& strPath, PathText aText);

/// Opens an unbuffered stream without newline translation. Child processes do not inherit it. Only
/// regular files and character devices are opened. If another process holds a lease on a regular
/// file, waits until the lease is released. Returns null with errno on failure; errno is 22
/// (invalid argument) if CanConvert returns false. May throw std::bad_alloc.
std::FILE* Open(const CCmString& strPath, OpenMode aMode, PathText aText,
                const CmPlace& aPlace = {});

int Close(std::FILE* pStream);

int Seek(std::FILE* pStream, std::int64_t nPosition);

/// Returns how many bytes were written. A short count without a reason means no space left (28).
std::size_t Write(std::FILE* pStream, const void* lpData, std::size_t dwLength);

/// Bytes that the caller owns.
struct tagBlock {
    const char* lpData;
    std::size_t nLength;
};

/// The largest number of blocks that WriteBlocks takes.
constexpr std::size_t c_nMaxBlocks = 16;

/// Writes the first block, and with the same system call as many of the following ones as the
/// system takes; none of the blocks is empty. If the system takes a part of a block, the rest of
/// this block is written too, and later blocks are not. Returns how many bytes were written. If
/// they end inside a block, or there are none, the write of that block failed, as in Write. Systems
/// without such a call write the first block only.
std::size_t WriteBlocks(std::FILE* pStream, const tagBlock* pBlocks, std::size_t nCount);

/// Undoes a failed write that has written a part of its bytes: truncates the file to nSize, where
/// the write began, if it is a regular file that still ends where the write stopped. Returns 0 if
/// the file was truncated or no byte was written, otherwise -1; errno is 0 if the file is not such
/// a file.
int CutBack(std::FILE* pStream, std::int64_t nSize);

/// Returns how many bytes were read. bEnd: a short count means the end of the file.
std::size_t Read(std::FILE* pStream, void* lpBuffer, std::size_t dwLength, bool& bEnd);

/// How a read at a position ended.
enum ReadEnd {
    Read_Whole,        // all bytes were read
    Read_AtEnd,        // fewer bytes were read, up to the end of the file
    Read_BadPosition,  // no byte was read: the position or the stream is not valid
    Read_Failed,       // failed before all bytes were read
};

/// Reads up to dwLength bytes at nPosition; dwRead counts them. The position of the stream
/// afterwards is unspecified: callers that depend on it seek first.
ReadEnd ReadAt(std::FILE* pStream, std::int64_t nPosition, void* lpBuffer, std::size_t dwLength,
               std::size_t& dwRead);

int Flush(std::FILE* pStream);

/// Waits until the disk has all bytes that were written.
int Sync(std::FILE* pStream);

/// The calls from here to CloseDescriptor are for a thread that syncs files which another thread
/// writes. They use descriptors, which can outlive a stream; -1 means none.
int DescriptorOf(std::FILE* pStream);

/// Returns another descriptor of the stream's open file, which the caller closes. It may stay open
/// after the stream is closed. -1 on failure, with errno 0 on systems without such descriptors.
int Duplicate(std::FILE* pStream);

/// Waits until the disk has the data of the file and its size. Succeeds for kinds of files that
/// cannot be synced. The system reports the failure of an earlier write-back once for each open
/// file, duplicates included.
int SyncData(int nFile);

/// Lets the system start to write the data of the file to the disk, if it can. Does not wait.
void StartWriteBack(int nFile);

/// Identifies a file on this machine.
struct tagFileId {
    std::uint64_t qwDevice = 0;
    std::uint64_t qwFile = 0;
    bool operator==(const tagFileId& aOther) const {
        return qwDevice == aOther.qwDevice && qwFile == aOther.qwFile;
    }
};

/// Opens the directory that holds the name strPath, for SyncDirectory. If nFile is a descriptor,
/// that name has to refer to its file, otherwise errno is 2 (not found). -1 on failure, with errno
/// 0 on systems that do not sync directories. May throw std::bad_alloc.
int OpenDirectoryOf(const CCmString& strPath, const CmPlace& aPlace, int nFile, tagFileId& aId);

/// Waits until the disk has the names in the directory. Succeeds for kinds of directories that
/// cannot be synced.
int SyncDirectory(int nDirectory);

/// Closes a descriptor that Duplicate or OpenDirectoryOf has returned.
int CloseDescriptor(int nDescriptor);

/// How many bytes this process can still write to the file system of the stream's file. On failure
/// qwBytes stays as it was.
int FreeSpace(std::FILE* pStream, std::uint64_t& qwBytes);

/// Moves to the end of the stream and returns its position, the size in bytes; -1 on failure.
std::int64_t Size(std::FILE* pStream);

/// Whether a file or a directory with that name exists.
bool Exists(const CCmString& strPath, const CmPlace& aPlace = {});
int MakeDirectory(const CCmString& strPath, const CmPlace& aPlace = {});
int RemoveFile(const CCmString& strPath);
int RemoveEmptyDirectory(const CCmString& strPath);

/// Renames strFrom to strTo, and replaces a file of that name. Both paths are UTF-8.
int RenameOver(const CCmString& strFrom, const CCmString& strTo);
int RemoveUtf8File(const CCmString& strPath);

/// Waits until the disk has the names in the directory of the file strPath (UTF-8), so that a file
/// that was created or renamed there keeps its name if the machine stops. Succeeds for kinds of
/// directories that cannot be synced, and on systems without such a call.
int SyncDirectoryOf(const CCmString& strPath);

}  // namespace CmFile
