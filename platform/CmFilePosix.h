#pragma once

#include <cerrno>
#include <cstdint>
#include <memory>

#include "platform/CmPlace.h"

/// Definitions that several sources for POSIX systems use.

/// Makes a system call that returns -1 on failure, and repeats it while a signal interrupts it. On
/// network and user-space file systems a signal can interrupt any call. Not for close: a close that
/// was interrupted has closed the descriptor.
template <class Call>
auto Repeated(Call aCall) -> decltype(aCall()) {
    for (;;) {
        const auto nResult = aCall();
        if (nResult != -1 || errno != EINTR) return nResult;
    }
}

/// Identifies a directory and its mount. Two directories with the same values have the same files.
struct tagDirectoryId {
    std::uint64_t qwInode = 0;
    std::uint64_t qwMount = 0;
    std::uint64_t qwDevice = 0;
    bool bKnown = false;  // false if the system does not report all three

    bool operator==(const tagDirectoryId& aOther) const {
        return bKnown && aOther.bKnown && qwInode == aOther.qwInode && qwMount == aOther.qwMount &&
               qwDevice == aOther.qwDevice;
    }
};

/// An open directory.
struct CmPlace::tagDirectory : std::enable_shared_from_this<const CmPlace::tagDirectory> {
    tagDirectory(int nOpenFile, const tagDirectoryId& aDirectoryId)
        : nFile(nOpenFile), aId(aDirectoryId) {}
    ~tagDirectory();
    tagDirectory(const tagDirectory&) = delete;
    tagDirectory& operator=(const tagDirectory&) = delete;

    const int nFile;
    const tagDirectoryId aId;
};
