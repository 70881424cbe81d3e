#pragma once

#include <cerrno>
#include <cstdint>
#include <memory>

#include "platform/CmPlace.h"

/// What the sources for POSIX systems share.

/// Makes a call of the system that gives -1 on failure, again while a signal interrupts it. Network
/// and user-space file systems let signals interrupt any call. Not for closing: an interrupted
/// close has closed.
template <class Call>
auto Repeated(Call aCall) -> decltype(aCall()) {
    for (;;) {
        const auto nResult = aCall();
        if (nResult != -1 || errno != EINTR) return nResult;
    }
}

/// Which directory of which mount: two of them with the same values lead to the same files.
struct tagDirectoryId {
    std::uint64_t qwInode = 0;
    std::uint64_t qwMount = 0;
    std::uint64_t qwDevice = 0;
    bool bKnown = false;  // false where the system does not give all of them

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
