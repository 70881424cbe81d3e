#pragma once

#include <vector>

#include "core/DataInfo.h"

/// A container read a second time, as plainly as docs/container-format.md describes it: one read
/// for each entry, one list, and nothing of the library's but its two records. Tags are those of
/// tests/support/Containers.h.
struct Reference {
    struct Entry {
        std::uint64_t qwOffset;
        unsigned wTag;
        CmUint32 dwDataOffset;
        CmUint32 dwNoted;
    };
    struct Stream {
        tagFileDescriber aDescriber;
        CmUint32 dwDataOffset;
        std::size_t nEntry;  ///< its number in vecEntries, if it is one of the first lap
    };

    /// Walks the index of a file, whose bytes from qwBadFrom to qwBadTo cannot be read.
    explicit Reference(const CCmString& strFile, std::uint64_t qwBadFrom = 0,
                       std::uint64_t qwBadTo = 0);

    /// The first stream that is meant, or null.
    const Stream* Find(const tagDataInfo& aInfo) const;

    /// What a read of a stream gives: the code and, after 0, the bytes.
    CmInt32 Read(const tagDataInfo& aInfo, CmUint32 dwOffset, CmUint32 dwLength,
                 CCmString& strBytes) const;

    /// How many bytes each stream of an index has: up to the end that the header gives or, if it
    /// begins after that, up to the end of the file.
    std::vector<CmUint32> Lengths(const std::vector<Entry>& vecIndex) const;

    /// What a player says of the length of a stream that Find gives.
    CmUint32 PlayedLength(const Stream& aStream) const;

    bool IsHeader() const { return bHeader; }

    CmInt32 lResult = 0;
    CmUint32 dwFileSize = 0;
    CmUint32 dwCount = 0;
    std::vector<Entry> vecEntries;  ///< as far as each is another one
    std::vector<Stream> vecStreams;
    CmUint32 dwVersion = 0;
    CmUint32 dwTimeStamp = 0;
    bool bCircle = false;
    /// The walk went on for too long to be finished here: the streams are the first ones, and the
    /// code is open.
    bool bBrokenOff = false;

 private:
    void Walk();
    bool TakeEntry(std::uint64_t qwAt);
    bool IsThere(std::uint64_t qwAt, unsigned nLength);
    bool IsBad(std::uint64_t qwFrom, std::uint64_t qwTo) const;
    CmUint32 Word(std::uint64_t qwAt) const;

    const CCmString& m_strFile;
    const std::uint64_t m_qwBadFrom, m_qwBadTo;
    bool bHeader = false;
};
