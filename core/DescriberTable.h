#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/DataInfo.h"
#include "platform/CmPrefetch.h"

/// Records with describers, in the order in which they were added. The lookup of the first match
/// takes constant time.
///
/// Among records with the same type and id, a lookup can return only those with a file kind that no
/// earlier one has, which are at most eight. They form a chain in the order of adding, and a hash
/// table has the first record of each chain. The first lookup after records were added links them,
/// because linking many at once takes a third of the time.
///
/// It has no lock, and lookups change it too, so only one thread may use it at a time. Record has a
/// public member aDescriber, which must not change in the table.
template <class Record>
class CDescriberTable {
 public:
    /// Reserves memory for this number of records. Throws std::bad_alloc.
    void Reserve(std::size_t nRecords) {
        m_vecRecords.reserve(nRecords);
        m_vecNext.reserve(nRecords);
        std::size_t nSlots = c_nMinSlots;
        while (nSlots < 2 * nRecords) nSlots *= 2;
        if (nSlots <= m_vecSlots.size()) return;
        std::vector<tagSlot>(nSlots, tagSlot{c_dwNone, 0}).swap(m_vecSlots);
        std::fill(m_vecNext.begin(), m_vecNext.end(), c_dwNone);
        m_nLinked = 0;
    }

    /// Adds a record, which must not be in the table, at the end. If it throws std::bad_alloc, the
    /// table is unchanged.
    void Add(const Record& aRecord) {
        MakeRoom();
        m_vecRecords.push_back(aRecord);
        m_vecNext.push_back(c_dwNone);
    }
    void Add(Record&& aRecord) {
        MakeRoom();
        m_vecRecords.push_back(std::move(aRecord));
        m_vecNext.push_back(c_dwNone);
    }

    /// Removes the record that was added last. If it took a slot, no later record has probed past
    /// that slot, so emptying it hides no other record.
    void RemoveLast() {
        const std::uint32_t dwLast = static_cast<std::uint32_t>(Size() - 1);
        if (m_nLinked == Size()) {
            std::uint32_t* pdwLink = &FirstOf(m_vecRecords.back().aDescriber);
            while (*pdwLink != c_dwNone && *pdwLink != dwLast) pdwLink = &m_vecNext[*pdwLink];
            *pdwLink = c_dwNone;
            --m_nLinked;
        }
        m_vecNext.pop_back();
        m_vecRecords.pop_back();
    }

    /// Returns the first record whose describer aDataInfo selects, or null. The pointer is valid
    /// until the table changes.
    const Record* Find(const tagDataInfo& aDataInfo) const {
        if (m_vecRecords.empty()) return nullptr;
        LinkAll();
        std::uint32_t dwIndex = m_vecSlots[FindSlot(aDataInfo, HashOf(aDataInfo))].dwFirst;
        for (; dwIndex != c_dwNone; dwIndex = m_vecNext[dwIndex])
            if (m_vecRecords[dwIndex].aDescriber.byFileType & aDataInfo.byFileType)
                return &m_vecRecords[dwIndex];
        return nullptr;
    }

    void Clear() {
        m_vecRecords.clear();
        m_vecNext.clear();
        m_vecSlots.clear();
        m_nLinked = 0;
    }

    std::size_t Size() const { return m_vecRecords.size(); }
    const Record& operator[](std::size_t nIndex) const { return m_vecRecords[nIndex]; }
    auto begin() const { return m_vecRecords.begin(); }
    auto end() const { return m_vecRecords.end(); }

 private:
    static constexpr std::uint32_t c_dwNone = 0xFFFFFFFF;
    static constexpr std::size_t c_nMinSlots = 16;

    /// How many records ahead a slot is prefetched. Linking a record takes a few nanoseconds and a
    /// load from memory about a hundred, so the slot of the 16th next record has arrived in time.
    static constexpr std::size_t c_nPrefetchDistance = 16;

    void MakeRoom() {
        if (Size() == m_vecNext.capacity() || 2 * Size() >= m_vecSlots.size())
            Reserve(2 * Size() + 1);
    }

    struct tagSlot {
        std::uint32_t dwFirst;  // of the chain; c_dwNone in an empty slot
        std::uint32_t dwTag;    // a part of the key's hash: if it differs, the keys differ
    };

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

    /// The slot of a key's chain, or the empty one where it would be.
    template <class Key>
    std::size_t FindSlot(const Key& aKey, std::uint64_t qwHash) const {
        for (std::size_t n = HomeOf(qwHash);; n = HomeOf(n + 1)) {
            const tagSlot& aSlot = m_vecSlots[n];
            if (aSlot.dwFirst == c_dwNone) return n;
            if (aSlot.dwTag != TagOf(qwHash)) continue;
            const tagFileDescriber& aFirst = m_vecRecords[aSlot.dwFirst].aDescriber;
            if (aFirst.dwFileID == aKey.dwFileID && aFirst.wDataType == aKey.wDataType) return n;
        }
    }

    /// The index of the first record of a key's chain; the caller may set it.
    std::uint32_t& FirstOf(const tagFileDescriber& aKey) const {
        const std::uint64_t qwHash = HashOf(aKey);
        tagSlot& aSlot = m_vecSlots[FindSlot(aKey, qwHash)];
        aSlot.dwTag = TagOf(qwHash);
        return aSlot.dwFirst;
    }

    /// Links each new record at the end of its chain if it has a kind that the chain lacks.
    void LinkAll() const {
        for (; m_nLinked < Size(); ++m_nLinked) {
            if (m_nLinked + c_nPrefetchDistance < Size())
                CmPrefetch(&m_vecSlots[HomeOf(
                    HashOf(m_vecRecords[m_nLinked + c_nPrefetchDistance].aDescriber))]);
            const tagFileDescriber& aDescriber = m_vecRecords[m_nLinked].aDescriber;
            unsigned byNew = aDescriber.byFileType;
            std::uint32_t* pdwLink = &FirstOf(aDescriber);
            for (; *pdwLink != c_dwNone; pdwLink = &m_vecNext[*pdwLink])
                byNew &= ~unsigned{m_vecRecords[*pdwLink].aDescriber.byFileType};
            if (byNew != 0) *pdwLink = static_cast<std::uint32_t>(m_nLinked);
        }
    }

    const std::uint64_t m_qwSeed = reinterpret_cast<std::uintptr_t>(this) * 0x9E3779B97F4A7C15;
    std::vector<Record> m_vecRecords;

    // Completed by lookups.
    mutable std::vector<std::uint32_t> m_vecNext;  // the next in each record's chain
    mutable std::vector<tagSlot> m_vecSlots;       // at least half are empty
    mutable std::size_t m_nLinked = 0;             // how many records are in their chains
};
