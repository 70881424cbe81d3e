#pragma once

#include <filesystem>
#include <random>
#include <string>

#include "platform/CmTypes.h"

/// A directory of its own for a test: made and entered at the start, left and removed at the end.
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

/// Paths are in the library's form or the standard library's, in the encoding of the process as
/// those of record files; only Exists takes ASCII alone, as some systems have it in UTF-8.
bool Exists(const CCmString& strPath);
CCmString ReadBytes(const CCmString& strPath);  // "<no file>" if there is none
void WriteBytes(const CCmString& strPath, const CCmString& strBytes);

/// dwLength bytes that differ from place to place.
CCmString Pattern(std::size_t dwLength, unsigned nStart = 0);

/// What a file with these bytes holds after a write; 0xFFFFFFFF is its end.
void Overwrite(CCmString& strFile, const CCmString& strBytes, CmUint32 dwOffset);

/// Empty when the strings are equal, else where they begin to differ.
std::string Difference(const CCmString& strGot, const CCmString& strWanted);

/// Random numbers whose seed is printed; CACHEFILE_TEST_SEED in the environment repeats a run.
class SeededRandom {
 public:
    SeededRandom();
    unsigned Below(unsigned nLimit) { return static_cast<unsigned>(m_engine() % nLimit); }
    CCmString Bytes(unsigned nLength);

 private:
    std::mt19937 m_engine;
};
