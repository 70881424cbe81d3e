#pragma once

#include <memory>

#include "platform/CmTypes.h"

/// The directory to which a relative path is relative.
///
/// A file may be opened later, on another thread. The open then uses the directory that was current
/// when it was requested, even if the process has changed its directory since. Copies share the
/// system's descriptor, which is closed with the last copy. One object is for one thread at a time;
/// copies may be used on different threads. If the directory could not be determined, every call
/// that uses the object fails with that reason.
class CmPlace {
 public:
    struct tagDirectory;  // differs by system

    /// Means the current directory of the process at the time of each call. Holds no descriptor.
    CmPlace() = default;

    /// Returns the current directory if strPath is relative. An absolute path needs no directory.
    /// Places of the same directory share one descriptor of the system. May throw std::bad_alloc.
    static CmPlace Take(const CCmString& strPath);

    /// Null if it holds no directory.
    const tagDirectory* Directory() const { return m_pDirectory.get(); }

    /// The errno of the failure if the directory could not be determined, otherwise 0.
    int Error() const { return m_nErrno; }

 private:
    std::shared_ptr<const tagDirectory> m_pDirectory;
    int m_nErrno = 0;
};
