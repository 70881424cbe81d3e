#include "tools/cachefile/OutputFile.h"

#include <cerrno>
#include <cstring>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/System.h"

namespace {

[[noreturn]] void ThrowExists(const std::filesystem::path& aPath) {
    throw CFailure(Printable(aPath.u8string()) + " is there already; --force writes over it");
}

[[noreturn]] void ThrowWriting(const std::filesystem::path& aPath, int nErrno) {
    throw CFailure("cannot write " + Printable(aPath.u8string()) + ": " +
                   (nErrno != 0 ? std::strerror(nErrno) : "the system gives no reason"));
}

}  // namespace

void RequireFree(const std::filesystem::path& aPath, bool bReplace) {
    std::error_code aError;
    const std::filesystem::file_status aStatus = std::filesystem::status(aPath, aError);
    if (std::filesystem::exists(aStatus) && !std::filesystem::is_regular_file(aStatus))
        throw CFailure(Printable(aPath.u8string()) + " is no regular file to be written over");
    const auto aOwnStatus = std::filesystem::symlink_status(aPath, aError);
    if (!bReplace && std::filesystem::exists(aOwnStatus)) ThrowExists(aPath);
}

void GiveName(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace) {
    std::error_code aError;
    System::Rename(aFrom, aTo, bReplace, aError);
    if (!aError) return;
    std::error_code aIgnored;
    std::filesystem::remove(aFrom, aIgnored);
    if (aError == std::errc::file_exists) ThrowExists(aTo);
    throw CFailure("cannot write " + Printable(aTo.u8string()) + ": " + aError.message());
}

COutputFile::COutputFile(std::filesystem::path aPath, bool bReplace)
    : m_path(std::move(aPath)), m_temporary(System::TemporaryName(m_path)), m_bReplace(bReplace) {
    RequireFree(m_path, bReplace);
    errno = 0;
    if (!System::MakeNewFile(m_temporary)) ThrowWriting(m_path, errno);
    m_stream.open(m_temporary, std::ios::binary | std::ios::trunc);
    if (!m_stream) ThrowWriting(m_path, errno);
}

COutputFile::~COutputFile() {
    if (m_bFinished) return;
    m_stream.close();
    std::error_code aIgnored;
    std::filesystem::remove(m_temporary, aIgnored);
}

void COutputFile::Write(const void* lpData, std::size_t nLength) {
    errno = 0;
    m_stream.write(static_cast<const char*>(lpData), static_cast<std::streamsize>(nLength));
    if (!m_stream) ThrowWriting(m_path, errno);
}

void COutputFile::Finish() {
    errno = 0;
    m_stream.close();
    if (!m_stream) ThrowWriting(m_path, errno);
    GiveName(m_temporary, m_path, m_bReplace);
    m_bFinished = true;
}
