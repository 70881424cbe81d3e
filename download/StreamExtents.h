#pragma once

#include <cstdint>
#include <vector>

#include "download/ContainerFormat.h"

/// Derives from an index where its streams end.
///
/// A stream ends where something else begins: the data of an entry, known or not, or the 32 bytes
/// of an entry; or at the end of the container. An entry may note the length of its stream; other
/// writers may have put anything there. A note fits if it is not longer than the bytes up to the
/// next beginning, and 0 on some bytes is no note. Notes that fit are believed if at least half of
/// all notes fit.
///
/// One thread at a time. Add each entry once, in the order of the index, then call Derive. Memory:
/// 28 bytes for an entry while it works, 12 afterwards. Throws std::bad_alloc.
class CStreamExtents {
 public:
    void Add(CmUint32 dwEntryOffset, CmUint32 dwDataOffset, CmUint32 dwNoted);

    /// Forgets all entries but the first ones. Their bounds stay.
    void Keep(std::size_t nEntries) { m_vecData.resize(nEntries); }

    /// qwDeclared: the size that the header gives. A stream that begins after it (which players
    /// refuse to read) reaches up to the next beginning or the end of the file.
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
    void BelieveNotes();

    std::vector<tagData> m_vecData;      // of each entry
    std::vector<CmUint32> m_vecEntries;  // where entries begin and end
    std::vector<CmUint32> m_vecOrder;    // the entries by the offset of their data
    std::vector<tagStreamExtent> m_vecExtents;
    std::size_t m_nNotes = 0;
    std::size_t m_nFitting = 0;
};

/// How many bytes of a stream a player reads: what the header's size and the file both have.
inline CmUint32 PlayableLength(CmUint32 dwDataOffset, CmUint32 dwLength, std::uint64_t qwDeclared,
                               std::uint64_t qwFileSize) {
    const std::uint64_t qwEnd = qwDeclared < qwFileSize ? qwDeclared : qwFileSize;
    if (dwDataOffset >= qwEnd) return 0;
    const std::uint64_t qwThere = qwEnd - dwDataOffset;
    return qwThere < dwLength ? static_cast<CmUint32>(qwThere) : dwLength;
}
