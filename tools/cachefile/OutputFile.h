#pragma once

#include <filesystem>
#include <fstream>

/// A file that gets its name when it is complete. Until then its bytes lie under another name in
/// the same directory; what is not finished is removed.
class COutputFile {
 public:
    /// Throws CFailure when there is a file of that name and bReplace is false, or when it can't
    /// be written.
    COutputFile(std::filesystem::path aPath, bool bReplace);
    ~COutputFile();
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    void Write(const void* lpData, std::size_t nLength);
    void Finish();

 private:
    const std::filesystem::path m_path;
    const std::filesystem::path m_temporary;
    const bool m_bReplace;
    bool m_bFinished = false;
    std::ofstream m_stream;
};

/// Throws CFailure when something has the name of a file that is to be written, and bReplace is
/// false.
void RequireFree(const std::filesystem::path& aPath, bool bReplace);

/// Gives a complete file its name; throws CFailure as above.
void GiveName(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace);
