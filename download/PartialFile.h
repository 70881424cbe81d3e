#pragma once

#include <cstddef>
#include <vector>

#include "download/FileStreamPtr.h"
#include "platform/CmTypes.h"

/// A file that gets its final name after all its bytes have reached the disk.
///
/// Until then the bytes are in a new file in the same directory. Its name is the first free one of
/// "NAME.partial", "NAME.partial2" and so on. The destructor removes that file unless it was
/// renamed. The functions are called in this order: Create, Append any number of times, Sync,
/// Rename. After a failure only the destructor may follow.
///
/// Lives on the stack of CContainerWriter::Write, on the calling thread. Functions trace a failed
/// call, return its code and leave its reason in errno. The constructor and Create throw
/// std::bad_alloc.
class CPartialFile {
 public:
    /// strPath is in UTF-8 and in the library's form.
    explicit CPartialFile(const CCmString& strPath);
    ~CPartialFile();
    CPartialFile(const CPartialFile&) = delete;
    CPartialFile& operator=(const CPartialFile&) = delete;

    const CCmString& GetPath() const { return m_strPath; }

    /// Creates the unfinished file.
    CmInt32 Create();

    /// Gathers bytes and writes them in blocks.
    CmInt32 Append(const unsigned char* lpData, std::size_t nLength);

    /// Writes the bytes that are still gathered, and waits until the disk has all bytes.
    CmInt32 Sync();

    /// Closes the file, renames it to the final name, which replaces an existing file, and waits
    /// until the disk has the name. If only the last step fails, the file keeps the final name.
    CmInt32 Rename();

 private:
    bool TryCreate();
    CmInt32 WriteGathered();

    const CCmString m_strPath;
    CCmString m_strPartial;
    FileStreamPtr m_pStream;
    bool m_bRemove = false;  // the destructor removes m_strPartial
    std::vector<unsigned char> m_vecGathered;
};
