#pragma once

#include <vector>

#include "core/DataInfo.h"

/// A container read a second time, as plainly as docs/container-format.md says it: one read an
/// entry, one list, nothing remembered, nothing of the library's used but its two records.
struct Reference {
    struct Entry {
        std::uint64_t qwOffset;
        unsigned wTag;
        CmUint32 dwDataOffset;
    };
    struct Stream {
        tagFileDescriber aDescriber;
        CmUint32 dwDataOffset;
    };

    /// Walks the index of the memory file.
    Reference();

    /// The first stream that is meant, or null.
    const Stream* Find(const tagDataInfo& aInfo) const;

    /// What a read of a stream gives: the code and, after 0, the bytes.
    CmInt32 Read(const tagDataInfo& aInfo, CmUint32 dwOffset, CmUint32 dwLength,
                 CCmString& strBytes) const;

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

    bool bHeader = false;
};
