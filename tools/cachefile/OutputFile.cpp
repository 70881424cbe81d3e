#include "tools/cachefile/OutputFile.h"

#include <cerrno>
#include <cstring>

#include "tools/cachefile/Exit.h"
#include "tools/cachefile/Output.h"
#include "tools/cachefile/System.h"

namespace {

[[noreturn]] void ThrowExists(const std::filesystem::path& aPath) {
    throw CFailure(Printable(aPath.u8string()) + " already exists (use `--force` to overwrite)");
}

[[noreturn]] void ThrowWriting(const std::filesystem::path& aPath, int nErrno) {
    throw CFailure("cannot write " + Printable(aPath.u8string()) + ": " +
                   (nErrno != 0 ? std::strerror(nErrno) : "the system gave no reason"));
}

constexpr char c_szPartial[] = ".partial";
constexpr char c_szNew[] = ".new";
constexpr int c_nMaxTries = 1000;

std::filesystem::path Appended(std::filesystem::path aPath, const std::string& strText) {
    return aPath += strText;
}

/// Creates a locked file with the first free partial name of aPath, and returns its path.
std::filesystem::path CreatePartial(const std::filesystem::path& aPath, System::CNewFile& aFile) {
    const std::string strProcess = "." + std::to_string(System::ProcessNumber());
    for (int nTry = 1;; ++nTry) {
        const std::string strTry = nTry > 1 ? "-" + std::to_string(nTry) : "";
        const auto aPartial = Appended(aPath, strProcess + strTry + c_szPartial);
        if (aFile.Create(aPartial)) return aPartial;
        if (errno != EEXIST || nTry == c_nMaxTries) ThrowWriting(aPath, errno);
    }
}

/// Removes strEnd from the end of strText. Returns false if strText ends otherwise.
bool CutEnd(std::string& strText, const std::string& strEnd) {
    if (strText.size() < strEnd.size() ||
        strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) != 0)
        return false;
    strText.resize(strText.size() - strEnd.size());
    return true;
}

/// Removes cBefore and the digits after it from the end of strText. Returns false if strText ends
/// otherwise.
bool CutNumber(std::string& strText, char cBefore) {
    const std::size_t nLast = strText.find_last_not_of("0123456789");
    if (nLast == std::string::npos || nLast + 1 == strText.size() || strText[nLast] != cBefore)
        return false;
    strText.resize(nLast);
    return true;
}

/// Whether strName is NAME.PID.partial or NAME.PID-N.partial with a NAME of setNames.
bool IsLockedName(std::string strName, const std::set<std::string>& setNames) {
    if (!CutEnd(strName, c_szPartial)) return false;
    CutNumber(strName, '-');
    return CutNumber(strName, '.') && setNames.count(strName) > 0;
}

/// The locked file that the file strName belongs to, or an empty text. That is the file itself, or
/// the one whose name comes before ".new" and whatever the writer of that file has appended.
std::string LockedName(const std::string& strName, const std::set<std::string>& setNames) {
    if (IsLockedName(strName, setNames)) return strName;
    const std::size_t nNew = strName.rfind(std::string(c_szPartial) + c_szNew);
    if (nNew == std::string::npos) return "";
    const std::string strLocked = strName.substr(0, nNew + std::strlen(c_szPartial));
    return IsLockedName(strLocked, setNames) ? strLocked : "";
}

}  // namespace

void RequireFree(const std::filesystem::path& aPath, bool bReplace) {
    std::error_code aError;
    const std::filesystem::file_status aStatus = std::filesystem::status(aPath, aError);
    if (std::filesystem::exists(aStatus) && !std::filesystem::is_regular_file(aStatus))
        throw CFailure(Printable(aPath.u8string()) +
                       " is not a regular file and cannot be overwritten");
    const auto aOwnStatus = std::filesystem::symlink_status(aPath, aError);
    if (!bReplace && std::filesystem::exists(aOwnStatus)) ThrowExists(aPath);
}

void GiveName(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace) {
    std::error_code aError;
    System::Rename(aFrom, aTo, bReplace, aError);
    if (!aError) return;
    std::error_code aIgnored;
    std::filesystem::remove_all(aFrom, aIgnored);
    if (aError == std::errc::file_exists) ThrowExists(aTo);
    throw CFailure("cannot write " + Printable(aTo.u8string()) + ": " + aError.message());
}

COutputFile::COutputFile(std::filesystem::path aPath, bool bReplace)
    : m_path(std::move(aPath)), m_bReplace(bReplace) {
    RequireFree(m_path, bReplace);
    m_temporary = CreatePartial(m_path, m_file);
}

COutputFile::~COutputFile() {
    if (m_bFinished) return;
    std::error_code aIgnored;
    std::filesystem::remove(m_temporary, aIgnored);
}

void COutputFile::Write(const void* lpData, std::size_t nLength) {
    if (!m_file.Write(lpData, nLength)) ThrowWriting(m_path, errno);
}

void COutputFile::Finish() {
    if (!m_file.Sync()) ThrowWriting(m_path, errno);
    GiveName(m_temporary, m_path, m_bReplace);
    m_bFinished = true;
    if (!m_file.Close()) ThrowWriting(m_path, errno);
}

CPartialName::CPartialName(const std::filesystem::path& aPath)
    : m_locked(CreatePartial(aPath, m_lock)), m_path(Appended(m_locked, c_szNew)) {}

CPartialName::~CPartialName() {
    std::error_code aIgnored;
    std::filesystem::remove_all(m_path, aIgnored);
    std::filesystem::remove(m_locked, aIgnored);
}

void RemoveAbandoned(const std::filesystem::path& aDirectory,
                     const std::set<std::string>& setNames) {
    std::error_code aError;
    std::filesystem::directory_iterator it(aDirectory, aError);
    for (; !aError && it != std::filesystem::directory_iterator(); it.increment(aError)) {
        const std::string strLocked = LockedName(it->path().filename().u8string(), setNames);
        if (strLocked.empty()) continue;
        const std::filesystem::path aLocked = aDirectory / std::filesystem::u8path(strLocked);
        std::error_code aIgnored;
        System::RemoveAbandoned(aLocked);
        if (!std::filesystem::exists(std::filesystem::symlink_status(aLocked, aIgnored)))
            std::filesystem::remove_all(it->path(), aIgnored);
    }
}

void RemoveAbandoned(const std::filesystem::path& aPath) {
    const std::filesystem::path aDirectory = aPath.parent_path();
    RemoveAbandoned(aDirectory.empty() ? "." : aDirectory, {aPath.filename().u8string()});
}
