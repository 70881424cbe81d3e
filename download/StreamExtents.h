#pragma once

#include <cstdint>
#include <vector>

#include "download/ContainerFormat.h"

/// Derives from an index where its streams end.
///
/// A stream ends where the next part begins: the data of an entry, known or not, or the 32 bytes of
/// an entry. The last one ends at the end of the container. An entry may note the length of its
/// stream, but other writers may have put any value there. A note fits if it is not longer than the
/// bytes up to the next part. A 0 does not count as a note if there are such bytes. Notes that fit
/// are used if at least half of all notes fit.
///
/// One thread at a time. Add each entry once, in the order of the index, then call Derive. It takes
/// 28 bytes per entry while it works and 12 afterwards. Throws std::bad_alloc.
class CStreamExtents {
 public:
    void Add(CmUint32 dwEntryOffset, CmUint32 dwDataOffset, CmUint32 dwNoted);

    /// Removes all entries except the first nEntries. The removed ones still bound other streams.
    void Keep(std::size_t nEntries) { m_vecData.resize(nEntries); }

    /// qwDeclared is the size in the header. A stream that begins after it, which players refuse to
    /// read, ends at the next part or at the end of the file.
    void Derive(std::uint64_t qwDeclared, std::uint64_t qwFileSize);

    std::size_t Size() const { return m_vecExtents.size(); }
    const tagStreamExtent& operator[](std::size_t nIndex) const { return m_vecExtents[nIndex]; }

 private:
    struct tagData {
        CmUint32 dwOffset;
        CmUint32 dwNoted;
    };

    void SortBounds();
    void DeriveGroup(std::size_t nFrom, std::size_t nTo, CmUint32 dwBytes);
    void CheckNotes();

    std::vector<tagData> m_vecData;      // of each entry
    std::vector<CmUint32> m_vecEntries;  // where entries begin and end
    std::vector<CmUint32> m_vecOrder;    // the entries by the offset of their data
    std::vector<tagStreamExtent> m_vecExtents;
    std::size_t m_nNotes = 0;
    std::size_t m_nFitting = 0;
};

namespace cachefile_internal {

/// How many bytes of a stream a player reads: those before the end of the file and before the end
/// given in the header.
inline CmUint32 PlayableLength(CmUint32 dwDataOffset, CmUint32 dwLength, std::uint64_t qwDeclared,
                               std::uint64_t qwFileSize) {
    const std::uint64_t qwEnd = qwDeclared < qwFileSize ? qwDeclared : qwFileSize;
    if (dwDataOffset >= qwEnd) return 0;
    const std::uint64_t qwAvailable = qwEnd - dwDataOffset;
    return qwAvailable < dwLength ? static_cast<CmUint32>(qwAvailable) : dwLength;
}

}  // namespace cachefile_internal

using cachefile_internal::PlayableLength;
