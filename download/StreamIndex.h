#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

#include "core/DescriberLookup.h"
#include "download/EntryBytes.h"

/// The entries of known kinds of a container's index, in the order of the index.
///
/// An entry is kept as the 32 bytes that it has in the file. Describer and fields are made from
/// them when they are needed, because a host reads from few of the streams of a large container.
///
/// Owned by a download handler, which uses it on one thread at a time. Reserve and Add throw
/// std::bad_alloc and leave the index unchanged; lookups do not fail.
class CStreamIndex {
 public:
    void Reserve(std::size_t nEntries) { m_vecEntries.reserve(nEntries); }

    /// Adds an entry of a known kind. Copies its 32 bytes.
    void Add(const unsigned char* lpEntry) {
        tagBytes aEntry;
        std::memcpy(aEntry.aBytes, lpEntry, sizeof aEntry.aBytes);
        m_vecEntries.push_back(aEntry);
    }

    /// Returns the number of the first entry that aDataInfo selects, or Size() if there is none.
    std::size_t Find(const tagDataInfo& aDataInfo) const {
        const auto describe = [pEntries = m_vecEntries.data()](std::size_t n) {
            return cachefile_internal::DescriberOfEntry(pEntries[n].aBytes);
        };
        return m_lookup.Find(aDataInfo, Size(), describe);
    }

    std::size_t Size() const { return m_vecEntries.size(); }

    const unsigned char* operator[](std::size_t nIndex) const {
        return m_vecEntries[nIndex].aBytes;
    }

    /// Removes all entries and frees their memory.
    void Clear() {
        m_vecEntries = std::vector<tagBytes>();  // assigning {} would keep the memory
        m_lookup.Clear();
    }

 private:
    struct tagBytes {
        unsigned char aBytes[c_dwEntrySize];
    };

    std::vector<tagBytes> m_vecEntries;
    mutable CDescriberLookup m_lookup;
};
