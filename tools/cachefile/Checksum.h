#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

/// Computes the XXH3-128 checksum of a sequence of bytes. Throws std::bad_alloc.
class CChecksum {
 public:
    CChecksum();
    ~CChecksum();
    CChecksum(const CChecksum&) = delete;
    CChecksum& operator=(const CChecksum&) = delete;

    void Add(const void* lpData, std::size_t nLength);

    /// The checksum of all bytes so far as 32 hexadecimal digits, as xxh128sum prints it.
    std::string GetText() const;

 private:
    struct State;
    std::unique_ptr<State> m_pState;
};

/// The checksum of a file, or an empty text if it cannot be read. If aEachBlock is given,
/// it is called after each block; its exceptions propagate.
std::string ChecksumOfFile(const std::filesystem::path& aFile,
                           const std::function<void()>& aEachBlock = {});
