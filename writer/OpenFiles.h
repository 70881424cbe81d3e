#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "fileop/FileOperation.h"

namespace cachefile_internal {

/// An open file of a write handler. The files of a process are numbered in the order of opening.
/// The lower 32 bits of the number are the host's handle of the file.
struct tagOpenFile {
    std::uint64_t qwNumber;
    CRefPtr<IFileOperation> pFile;

    CmUint32 GetHandle() const { return static_cast<CmUint32>(qwNumber); }
};

}  // namespace cachefile_internal

using cachefile_internal::tagOpenFile;

/// Finds, adds and removes the open files of one write handler.
///
/// A view of the handler's list, created for one call. It keeps the list sorted by handle, so that
/// a binary search finds a file also after the handles of the process have started again from 1.
/// It has no lock: only the thread that drives the handler uses it.
class COpenFiles {
 public:
    /// Both must outlive the object. aLastNumber is the number of the file that was opened last.
    /// All handlers of the process share it, so a handle of one handler is not valid for another
    /// one.
    COpenFiles(std::vector<tagOpenFile>& vecFiles, std::atomic<std::uint64_t>& aLastNumber)
        : m_vecFiles(vecFiles), m_lastNumber(aLastNumber) {}

    /// Adds a file and returns its handle, which is not 0 and not that of another file in the list.
    /// Throws std::bad_alloc with the list unchanged.
    CmUint32 Add(const CRefPtr<IFileOperation>& pFile);

    /// Returns the file with this handle, or null. Adds no reference.
    IFileOperation* Find(CmUint32 dwHandle) const;

    /// Removes the file with this handle. Returns whether there was one.
    bool Remove(CmUint32 dwHandle);

    /// Closes all files in the order of opening and empties the list.
    void CloseAll();

 private:
    using Position = std::vector<tagOpenFile>::iterator;
    Position FirstFrom(CmUint32 dwHandle) const;
    bool IsAt(Position it, CmUint32 dwHandle) const;

    std::vector<tagOpenFile>& m_vecFiles;
    std::atomic<std::uint64_t>& m_lastNumber;
};
