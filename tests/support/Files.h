#pragma once

#include <filesystem>
#include <random>
#include <string>

#include "platform/CmTypes.h"

/// A new current directory for a test. It is removed at the end.
class TestDir {
 public:
    TestDir();
    ~TestDir();
    TestDir(const TestDir&) = delete;
    TestDir& operator=(const TestDir&) = delete;

 private:
    const std::filesystem::path m_before;
    std::filesystem::path m_path;
};

/// Paths have the form of the library or of the standard library, in the encoding of the process.
/// Exists accepts only ASCII, because some systems expect UTF-8 there.
bool Exists(const CCmString& strPath);
CCmString ReadBytes(const CCmString& strPath);  // "<no file>" if the file does not exist
void WriteBytes(const CCmString& strPath, const CCmString& strBytes);  // makes directories too
std::ptrdiff_t CountOpenFiles();  // of this process, where the system has /dev/fd

/// Returns dwLength bytes whose values depend on their position.
CCmString Pattern(std::size_t dwLength, unsigned nStart = 0);

inline const unsigned char* BytesOf(const CCmString& strBytes) {
    return reinterpret_cast<const unsigned char*>(strBytes.data());
}

/// Applies a write to the bytes of a file; the offset 0xFFFFFFFF appends.
void Overwrite(CCmString& strFile, const CCmString& strBytes, CmUint32 dwOffset);

/// Returns an empty text if the strings are equal, otherwise where they begin to differ.
std::string Difference(const CCmString& strGot, const CCmString& strWanted);

/// Random numbers. The seed is printed; CACHEFILE_TEST_SEED in the environment repeats a run.
class SeededRandom {
 public:
    SeededRandom() : SeededRandom(ChooseSeed()) {}
    explicit SeededRandom(unsigned nSeed) : m_engine(nSeed) {}
    static unsigned ChooseSeed();  // prints it
    unsigned Below(std::size_t nLimit) { return static_cast<unsigned>(m_engine() % nLimit); }
    bool OneIn(unsigned n) { return Below(n) == 0; }
    CCmString Bytes(unsigned nLength);

 private:
    std::mt19937 m_engine;
};
