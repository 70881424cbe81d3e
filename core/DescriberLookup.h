#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "core/DataInfo.h"
#include "platform/CmPrefetch.h"

/// Finds the first record that a request selects. The records are elsewhere, numbered in the order
/// in which they were added. The caller passes their number and a function that returns the
/// describer of a record.
///
/// Among records with the same type and id, a lookup can return only those with a file kind that no
/// earlier one has, which are at most eight. They form a chain in the order of adding, and a hash
/// table has the first record of each chain. A lookup then takes constant time.
///
/// The table is made only after lookups have compared as many records as there are, because a host
/// may read few streams, and the memory of a large table costs more time than a walk. Records that
/// are added later are linked by the next lookup. Without memory for the table, lookups compare
/// record after record; they never fail.
///
/// Owned by the table of the records. It has no lock, and lookups change it, so only one thread may
/// use it at a time.
class CDescriberLookup {
 public:
    /// Returns the number of the first record that aDataInfo selects, or nRecords if there is none.
    template <class Describe>
    std::size_t Find(const tagDataInfo& aDataInfo, std::size_t nRecords, Describe aDescribe) {
        const bool bLink = m_nLinked > 0 || m_nCompared >= nRecords;
        if (nRecords == 0 || !bLink || !TakeMemory(nRecords))
            return Walk(aDataInfo, nRecords, aDescribe);
        LinkAll(nRecords, aDescribe);
        const std::uint64_t qwHash = HashOf(aDataInfo);
        std::uint32_t dwIndex = m_vecSlots[FindSlot(aDataInfo, qwHash, aDescribe)].dwFirst;
        for (; dwIndex != c_dwNone; dwIndex = m_vecNext[dwIndex])
            if (aDescribe(dwIndex).byFileType & aDataInfo.byFileType) return dwIndex;
        return nRecords;
    }

    /// Call it before the last of nRecords records is removed. If that record took a slot, no later
    /// record has probed past the slot, so emptying it hides no other record.
    template <class Describe>
    void RemoveLast(std::size_t nRecords, Describe aDescribe) {
        if (m_nLinked != nRecords) return;
        const std::uint32_t dwLast = static_cast<std::uint32_t>(nRecords - 1);
        std::uint32_t* pdwLink = &FirstOf(aDescribe(dwLast), aDescribe);
        while (*pdwLink != c_dwNone && *pdwLink != dwLast) pdwLink = &m_vecNext[*pdwLink];
        *pdwLink = c_dwNone;
        m_vecNext.pop_back();
        --m_nLinked;
    }

    /// Call it when all records are removed.
    void Clear() {
        m_vecSlots.clear();
        m_vecNext.clear();
        m_nLinked = 0;
        m_nCompared = 0;
    }

 private:
    static constexpr std::uint32_t c_dwNone = 0xFFFFFFFF;
    static constexpr std::size_t c_nMinSlots = 16;

    /// How many records ahead a slot is prefetched. Linking a record takes a few nanoseconds and a
    /// load from memory about a hundred, so the slot of the 16th next record has arrived in time.
    static constexpr std::size_t c_nPrefetchDistance = 16;

    struct tagSlot {
        std::uint32_t dwFirst;  // of the chain; c_dwNone in an empty slot
        std::uint32_t dwTag;    // a part of the key's hash: if it differs, the keys differ
    };

    template <class Describe>
    std::size_t Walk(const tagDataInfo& aDataInfo, std::size_t nRecords, Describe aDescribe) {
        std::size_t nIndex = 0;
        while (nIndex < nRecords && !DataInfoMatches(aDataInfo, aDescribe(nIndex))) ++nIndex;
        m_nCompared += nIndex + 1;
        return nIndex;
    }

    /// Takes the memory to link nRecords records. Returns false if there is none.
    bool TakeMemory(std::size_t nRecords) try {
        if (2 * nRecords <= m_vecSlots.size()) return true;
        std::size_t nSlots = c_nMinSlots;
        while (nSlots < 2 * nRecords) nSlots *= 2;
        m_vecNext.reserve(nSlots / 2);
        std::vector<tagSlot>(nSlots, tagSlot{c_dwNone, 0}).swap(m_vecSlots);
        m_vecNext.clear();
        m_nLinked = 0;
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }

    /// The ids come from files. The seed keeps a hostile file from choosing ids that collide;
    /// addresses differ from run to run, which is enough for that. Key has a type and an id.
    template <class Key>
    std::uint64_t HashOf(const Key& aKey) const {
        std::uint64_t qw = (std::uint64_t{aKey.wDataType} << 32 | aKey.dwFileID) ^ m_qwSeed;
        qw = (qw ^ qw >> 30) * 0xBF58476D1CE4E5B9;
        qw = (qw ^ qw >> 27) * 0x94D049BB133111EB;
        return qw ^ qw >> 31;
    }
    static std::uint32_t TagOf(std::uint64_t qwHash) {
        return static_cast<std::uint32_t>(qwHash >> 32);
    }
    std::size_t HomeOf(std::uint64_t qwHash) const {
        return static_cast<std::size_t>(qwHash) & (m_vecSlots.size() - 1);
    }

    /// The slot of a key's chain, or the empty one where it would be. At least half of the slots
    /// are empty.
    template <class Key, class Describe>
    std::size_t FindSlot(const Key& aKey, std::uint64_t qwHash, Describe aDescribe) const {
        for (std::size_t n = HomeOf(qwHash);; n = HomeOf(n + 1)) {
            const tagSlot& aSlot = m_vecSlots[n];
            if (aSlot.dwFirst == c_dwNone) return n;
            if (aSlot.dwTag != TagOf(qwHash)) continue;
            const tagFileDescriber& aFirst = aDescribe(aSlot.dwFirst);
            if (aFirst.dwFileID == aKey.dwFileID && aFirst.wDataType == aKey.wDataType) return n;
        }
    }

    /// The number of the first record of a key's chain; the caller may set it.
    template <class Describe>
    std::uint32_t& FirstOf(const tagFileDescriber& aKey, Describe aDescribe) {
        const std::uint64_t qwHash = HashOf(aKey);
        tagSlot& aSlot = m_vecSlots[FindSlot(aKey, qwHash, aDescribe)];
        aSlot.dwTag = TagOf(qwHash);
        return aSlot.dwFirst;
    }

    /// Links each new record at the end of its chain if it has a kind that the chain lacks.
    template <class Describe>
    void LinkAll(std::size_t nRecords, Describe aDescribe) {
        for (; m_nLinked < nRecords; ++m_nLinked) {
            if (m_nLinked + c_nPrefetchDistance < nRecords)
                CmPrefetch(&m_vecSlots[HomeOf(HashOf(aDescribe(m_nLinked + c_nPrefetchDistance)))]);
            const tagFileDescriber& aDescriber = aDescribe(m_nLinked);
            unsigned byNew = aDescriber.byFileType;
            std::uint32_t* pdwLink = &FirstOf(aDescriber, aDescribe);
            for (; *pdwLink != c_dwNone; pdwLink = &m_vecNext[*pdwLink])
                byNew &= ~unsigned{aDescribe(*pdwLink).byFileType};
            if (byNew != 0) *pdwLink = static_cast<std::uint32_t>(m_nLinked);
            m_vecNext.push_back(c_dwNone);  // into reserved memory
        }
    }

    const std::uint64_t m_qwSeed = reinterpret_cast<std::uintptr_t>(this) * 0x9E3779B97F4A7C15;
    std::vector<tagSlot> m_vecSlots;       // empty until records are linked
    std::vector<std::uint32_t> m_vecNext;  // the next in the chain of each linked record
    std::size_t m_nLinked = 0;             // how many records are in their chains
    std::size_t m_nCompared = 0;           // by lookups before the first link
};
