#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "tools/cachefile/System.h"

/// Files that get their names when they are complete.
///
/// Until then the bytes of NAME are in the same directory under NAME.PID.partial. Its writer keeps
/// that file locked, so the next run can remove what a killed one has left and nothing else.

/// One such file, written here. Not finished, it is removed.
class COutputFile {
 public:
    /// Throws CFailure when there is a file of that name and bReplace is false, or when it can't
    /// be written.
    COutputFile(std::filesystem::path aPath, bool bReplace);
    ~COutputFile();
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    void Write(const void* lpData, std::size_t nLength);

    /// Waits until the disk has the bytes, then gives the file its name.
    void Finish();

 private:
    const std::filesystem::path m_path;
    const bool m_bReplace;
    std::filesystem::path m_temporary;
    bool m_bFinished = false;
    System::CNewFile m_file;
};

/// A name for such a file that is written elsewhere: NAME.PID.partial.new beside the locked, empty
/// file NAME.PID.partial. Whatever is still under these names in the end is removed.
class CPartialName {
 public:
    /// Throws CFailure when no file can be made there.
    explicit CPartialName(const std::filesystem::path& aPath);
    ~CPartialName() { Remove(); }
    CPartialName(const CPartialName&) = delete;
    CPartialName& operator=(const CPartialName&) = delete;

    const std::filesystem::path& GetPath() const { return m_path; }

    /// Where the library's container writer puts the bytes until they are complete.
    std::filesystem::path GetWriterPath() const;

    /// May be called while another thread is writing there, when the process ends directly after.
    void Remove();

 private:
    System::CNewFile m_lock;
    const std::filesystem::path m_locked;
    const std::filesystem::path m_path;
};

/// Removes what killed runs have left in a directory of files with these names (UTF-8).
void RemoveAbandoned(const std::filesystem::path& aDirectory,
                     const std::set<std::string>& setNames);

/// The same for one file.
void RemoveAbandoned(const std::filesystem::path& aPath);

/// Throws CFailure when something has the name of a file that is to be written, and bReplace is
/// false.
void RequireFree(const std::filesystem::path& aPath, bool bReplace);

/// Gives a complete file its name. Throws CFailure as above; the file is removed then.
void GiveName(const std::filesystem::path& aFrom, const std::filesystem::path& aTo, bool bReplace);
