#pragma once

#include <vector>

#include "core/DataInfo.h"

/// A second reader of containers, as simple as docs/container-format.md describes them: one read
/// per entry and one list. It uses nothing of the library but two records, and the tags of
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
        std::size_t nEntry;  ///< its index in vecEntries, unless a circle repeats it
    };

    /// Walks the index of a file. The bytes from qwBadFrom to qwBadTo cannot be read.
    explicit Reference(const CCmString& strFile, std::uint64_t qwBadFrom = 0,
                       std::uint64_t qwBadTo = 0);

    /// Returns the first stream that matches, or null.
    const Stream* Find(const tagDataInfo& aInfo) const;

    /// Returns the expected code of a read and, if that is 0, the expected bytes.
    CmInt32 Read(const tagDataInfo& aInfo, CmUint32 dwOffset, CmUint32 dwLength,
                 CCmString& strBytes) const;

    /// Returns the length of each stream of an index. The last stream extends to the end that the
    /// header gives or, if it begins after that, to the end of the file.
    std::vector<CmUint32> Lengths(const std::vector<Entry>& vecIndex) const;

    /// Returns the length that a player must return for a stream.
    CmUint32 PlayedLength(const Stream& aStream) const;

    bool IsHeader() const { return bHeader; }

    CmInt32 lResult = 0;
    CmUint32 dwFileSize = 0;
    CmUint32 dwCount = 0;
    std::vector<Entry> vecEntries;  ///< each entry once
    std::vector<Stream> vecStreams;
    CmUint32 dwVersion = 0;
    CmUint32 dwTimeStamp = 0;
    bool bCircle = false;
    /// The walk was too long and was stopped. vecStreams has only the first streams, and the code
    /// is unknown.
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
