#include "tests/support/Files.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

namespace fs = std::filesystem;

TestDir::TestDir() : m_before(fs::current_path()) {
    std::random_device aDevice;
    do {
        m_path = fs::temp_directory_path() / ("cachefile-" + std::to_string(aDevice()));
    } while (!fs::create_directory(m_path));
    fs::current_path(m_path);
}

TestDir::~TestDir() {
    std::error_code aIgnored;
    fs::current_path(m_before, aIgnored);
    fs::remove_all(m_path, aIgnored);
}

static CCmString Native(CCmString strPath) {
    std::replace(strPath.begin(), strPath.end(), '\\', '/');
    return strPath;
}

bool Exists(const CCmString& strPath) { return fs::exists(Native(strPath)); }

CCmString ReadBytes(const CCmString& strPath) {
    std::ifstream aFile(Native(strPath), std::ios::binary);
    if (!aFile) return "<no file>";
    std::ostringstream aBytes;
    aBytes << aFile.rdbuf();
    return aBytes.str();
}

void WriteBytes(const CCmString& strPath, const CCmString& strBytes) {
    const fs::path aPath = Native(strPath);
    if (aPath.has_parent_path()) fs::create_directories(aPath.parent_path());
    std::ofstream(aPath, std::ios::binary) << strBytes;
}

std::ptrdiff_t CountOpenFiles() {
    const fs::directory_iterator aOpen("/dev/fd");
    return std::distance(begin(aOpen), end(aOpen));
}

CCmString Pattern(std::size_t dwLength, unsigned nStart) {
    CCmString strBytes(dwLength, '\0');
    for (std::size_t i = 0; i < dwLength; ++i)
        strBytes[i] = static_cast<char>((i + nStart) * 2654435761U >> 13);
    return strBytes;
}

void Overwrite(CCmString& strFile, const CCmString& strBytes, CmUint32 dwOffset) {
    if (strBytes.empty()) return;
    const std::size_t nOffset = dwOffset == 0xFFFFFFFF ? strFile.size() : dwOffset;
    strFile.resize(std::max(strFile.size(), nOffset + strBytes.size()));
    strFile.replace(nOffset, strBytes.size(), strBytes);
}

std::string Difference(const CCmString& strGot, const CCmString& strWanted) {
    if (strGot == strWanted) return {};
    const auto aPair =
        std::mismatch(strGot.begin(), strGot.end(), strWanted.begin(), strWanted.end());
    return std::to_string(strGot.size()) + " bytes instead of " + std::to_string(strWanted.size()) +
           ", different from offset " + std::to_string(aPair.first - strGot.begin());
}

unsigned SeededRandom::ChooseSeed() {
    const char* const lpGiven = std::getenv("CACHEFILE_TEST_SEED");
    const unsigned nSeed = lpGiven ? static_cast<unsigned>(std::strtoul(lpGiven, nullptr, 10))
                                   : std::random_device{}();
    std::cout << "CACHEFILE_TEST_SEED=" << nSeed << std::endl;
    return nSeed;
}

CCmString SeededRandom::Bytes(unsigned nLength) {
    CCmString strBytes(nLength, '\0');
    for (char& cByte : strBytes) cByte = static_cast<char>(m_engine());
    return strBytes;
}
