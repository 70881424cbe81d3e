#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "tools/cachefile/System.h"

// Files that get their names after they are complete.
//
// Until then the bytes of NAME are in NAME.PID.partial in the same directory. The writer keeps that
// file locked. The next run with the same output removes the files that killed runs have left,
// which are not locked, and no others.

/// One such file. The destructor removes it unless it was finished.
class COutputFile {
 public:
    /// Throws CFailure if the name exists and bReplace is false, or if the file cannot be created.
    COutputFile(std::filesystem::path aPath, bool bReplace);
    ~COutputFile();
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    void Write(const void* lpData, std::size_t nLength);

    /// Waits until the disk has the bytes, then gives the file its name. Throws CFailure.
    void Finish();

 private:
    const std::filesystem::path m_path;
    const bool m_bReplace;
    std::filesystem::path m_temporary;
    bool m_bFinished = false;
    System::CNewFile m_file;
};

/// A name for such a file, or directory, that other code writes: NAME.PID.partial.new beside the
/// locked, empty file NAME.PID.partial. That code may also make files whose names begin with this
/// one. The destructor removes NAME.PID.partial.new and NAME.PID.partial.
class CPartialName {
 public:
    /// Throws CFailure if the locked file cannot be made.
    explicit CPartialName(const std::filesystem::path& aPath);
    ~CPartialName();
    CPartialName(const CPartialName&) = delete;
    CPartialName& operator=(const CPartialName&) = delete;

    const std::filesystem::path& GetPath() const { return m_path; }

 private:
    System::CNewFile m_lock;
    const std::filesystem::path m_locked;
    const std::filesystem::path m_path;
};

/// Removes the files that killed runs with these outputs (UTF-8 names) left in a directory.
void RemoveAbandoned(const std::filesystem::path& aDirectory,
                     const std::set<std::string>& setNames);

/// The same for one file.
void RemoveAbandoned(const std::filesystem::path& aPath);

/// Throws CFailure if the path exists and bReplace is false, or if it is not a regular file.
void RequireFree(const std::filesystem::path& aPath, bool bReplace);

/// Gives a complete file or directory its name. A directory replaces nothing. On failure it is
/// removed and CFailure is thrown.
void GiveName(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace);
