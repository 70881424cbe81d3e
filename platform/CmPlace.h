#pragma once

#include <memory>

#include "platform/CmTypes.h"

/// The directory where a relative path begins.
///
/// A value: whoever carries out an open on another thread, later, carries it along, so that the
/// process may change its directory in between. Copies share what they hold, which the last one
/// frees. One object is for one thread at a time; different ones may be used on different threads.
/// A place that could not be taken is one too: every call with it fails with the reason.
class CmPlace {
 public:
    struct tagDirectory;  // differs by system

    /// The current directory of the process at the time of each call. Holds nothing.
    CmPlace() = default;

    /// The directory where strPath begins at this moment: where it is relative, the current one.
    /// An absolute path needs none. Places of the same directory share one descriptor of the
    /// system. May throw std::bad_alloc.
    static CmPlace Take(const CCmString& strPath);

    /// Null if nothing is held.
    const tagDirectory* Directory() const { return m_pDirectory.get(); }

    /// Why it could not be taken, an errno value; otherwise 0.
    int Error() const { return m_nErrno; }

 private:
    std::shared_ptr<const tagDirectory> m_pDirectory;
    int m_nErrno = 0;
};
