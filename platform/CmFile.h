#pragma once

#include <cstdint>
#include <cstdio>

#include "platform/CmPlace.h"
#include "platform/CmTypes.h"

/// The file system as this library uses it: one place for the differences between systems. Every
/// path of the library passes through here. Paths are in the library's form, with the backslash
/// as the separator; systems whose own separator is the slash get it here and nowhere else.
///
/// A relative path begins in the current directory, or in the place that is given.
///
/// Where a path in the system's form takes memory (not on POSIX) and there is none, Open throws and
/// the others give errno 12.
///
/// A call of the system that a signal interrupts is repeated, except for closing. Nothing else is.
///
/// Each call sets errno to 0 first, so that after a failure errno is that call's own, or 0 where
/// the runtime gave no reason. Numbers: 2 not found, 13 denied, 17 exists, 28 no space left.
namespace CmFile {

enum OpenMode {
    Open_Read,
    Open_Write,  // created or emptied; readable too
    Open_New,    // as Open_Write, but errno 17 if there is one, and on failure there is none
};
enum PathText { Path_Local, Path_Utf8 };  // the system's own encoding; UTF-8 everywhere

/// Whether the path can be given to the system. An empty UTF-8 path cannot on any system, invalid
/// UTF-8 cannot where the system has wide characters; everything else can.
bool CanConvert(const CCmString& strPath, PathText aText);

/// Opens an unbuffered stream without newline translation that child processes don't inherit.
/// Only regular files and character devices are opened. Null with errno on failure.
/// A path that CanConvert refuses gives null with errno 22 (invalid argument).
/// May throw std::bad_alloc.
/// Of a regular file that another process has a lease on, the open waits until it is given up.
std::FILE* Open(const CCmString& strPath, OpenMode aMode, PathText aText,
                const CmPlace& aPlace = {});

int Close(std::FILE* pStream);

int Seek(std::FILE* pStream, std::int64_t nPosition);

/// Returns how many bytes were written. A short count without a reason means no space left (28).
std::size_t Write(std::FILE* pStream, const void* lpData, std::size_t dwLength);

/// Undoes a write that failed after a part of its bytes: cuts the file back to nSize, where the
/// write began, if it is a regular file that still ends where the write stopped. Returns 0 after
/// the cut or if no byte was written, otherwise -1: errno is 0 if the file is not such a file.
int CutBack(std::FILE* pStream, std::int64_t nSize);

/// Returns how many bytes were read; bEnd tells whether a short count means the end of the file.
std::size_t Read(std::FILE* pStream, void* lpBuffer, std::size_t dwLength, bool& bEnd);

/// How a read at a position ended.
enum ReadEnd {
    Read_Whole,        // with all that was wanted
    Read_AtEnd,        // at the end of the file, with less
    Read_NoSuchPlace,  // before it began: there is no such position, or no such stream
    Read_Failed,       // before all was there
};

/// Reads up to dwLength bytes at nPosition; dwRead counts them. Where the stream stands afterwards
/// isn't said: every other call that depends on it seeks first.
ReadEnd ReadAt(std::FILE* pStream, std::int64_t nPosition, void* lpBuffer, std::size_t dwLength,
               std::size_t& dwRead);

int Flush(std::FILE* pStream);

/// Has what was written reach the disk.
int Sync(std::FILE* pStream);

/// The calls from here to CloseDescriptor are for a thread that syncs what another one writes. They
/// use descriptors, which can outlive a stream; -1 is none.
int DescriptorOf(std::FILE* pStream);

/// Returns another descriptor of the stream's open file, which the caller closes. It may stay open
/// after the stream is closed. -1 on failure, with errno 0 on systems without such descriptors.
int Duplicate(std::FILE* pStream);

/// Brings the data of the file to the disk, and its size. A kind of file that cannot be synced
/// counts as done. The system reports the failure of an earlier write-back once for each open file,
/// duplicates included.
int SyncData(int nFile);

/// Starts to write the data of the file back, where the system can. Does not wait for the disk.
void StartWriteBack(int nFile);

/// Which file of which file system.
struct tagFileId {
    std::uint64_t qwDevice = 0;
    std::uint64_t qwFile = 0;
    bool operator==(const tagFileId& aOther) const {
        return qwDevice == aOther.qwDevice && qwFile == aOther.qwFile;
    }
};

/// Opens the directory that holds the name strPath, for SyncDirectory. If pStream is given, that
/// name has to lead to its file, otherwise errno is 2 (not found). -1 on failure, with errno 0 on
/// systems that do not sync directories. May throw std::bad_alloc.
int OpenDirectoryOf(const CCmString& strPath, const CmPlace& aPlace, std::FILE* pStream,
                    tagFileId& aId);

/// Brings the names in the directory to the disk. A kind of directory that cannot be synced counts
/// as done.
int SyncDirectory(int nDirectory);

/// Closes a descriptor that Duplicate or OpenDirectoryOf has returned.
int CloseDescriptor(int nDescriptor);

/// How many bytes this process can still write to the file system of the stream's file. On failure
/// qwBytes stays as it was.
int FreeSpace(std::FILE* pStream, std::uint64_t& qwBytes);

/// Moves to the end of the stream and returns its position, the size in bytes; -1 on failure.
std::int64_t Size(std::FILE* pStream);

/// Whether there is anything under that name.
bool Exists(const CCmString& strPath, const CmPlace& aPlace = {});
int MakeDirectory(const CCmString& strPath, const CmPlace& aPlace = {});
int RemoveFile(const CCmString& strPath);
int RemoveEmptyDirectory(const CCmString& strPath);

/// Gives the file strFrom the name strTo, in place of what has that name. Both paths are UTF-8.
int RenameOver(const CCmString& strFrom, const CCmString& strTo);
int RemoveUtf8File(const CCmString& strPath);

/// Has the names in the directory of the file strPath (UTF-8) reach the disk, so that a file
/// created or renamed there keeps its name when the machine stops. Directories that cannot be
/// synced by their kind, and all those of systems without that call, count as done.
int SyncDirectoryOf(const CCmString& strPath);

}  // namespace CmFile
