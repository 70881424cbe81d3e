#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/DataInfo.h"

/// Records that each carry a describer, in the order in which they were added, with a lookup that
/// finds the first match in constant time however many there are.
///
/// Of the records with the same type and id only those can be an answer that brought a file kind
/// which none of them had before: eight at most. They form a chain in the order of adding, and the
/// hash table holds the first of each chain. No lock. Record has a public member aDescriber, which
/// doesn't change while the record is in the table.
template <class Record>
class CDescriberTable {
 public:
    /// Makes room for so many records. Throws std::bad_alloc.
    void Reserve(std::size_t nRecords) {
        m_vecRecords.reserve(nRecords);
        m_vecNext.reserve(nRecords);
        std::size_t nSlots = c_nLeastSlots;
        while (nSlots < 2 * nRecords) nSlots *= 2;
        if (nSlots > m_vecSlots.size()) Rehash(nSlots);
    }

    /// Adds a record behind the others. Throws std::bad_alloc with the table as it was.
    void Add(Record aRecord) {
        if (Size() == m_vecNext.capacity() || 2 * Size() >= m_vecSlots.size())
            Reserve(2 * Size() + 1);
        m_vecRecords.push_back(std::move(aRecord));
        m_vecNext.push_back(c_dwNone);
        Link(LastIndex());
    }

    /// Takes the record that was added last away again. Its slot was the last to be filled, so it
    /// can be emptied without any other's being missed.
    void RemoveLast() {
        std::uint32_t* pdwLink = &SlotOf(m_vecRecords.back().aDescriber);
        while (*pdwLink != c_dwNone && *pdwLink != LastIndex()) pdwLink = &m_vecNext[*pdwLink];
        *pdwLink = c_dwNone;
        m_vecNext.pop_back();
        m_vecRecords.pop_back();
    }

    /// The first record whose describer aDataInfo designates, or null. Good until the table
    /// changes.
    const Record* Find(const tagDataInfo& aDataInfo) const {
        if (m_vecSlots.empty()) return nullptr;
        for (std::uint32_t dw = m_vecSlots[FindSlot(aDataInfo)]; dw != c_dwNone; dw = m_vecNext[dw])
            if (m_vecRecords[dw].aDescriber.byFileType & aDataInfo.byFileType)
                return &m_vecRecords[dw];
        return nullptr;
    }

    void Clear() {
        m_vecRecords.clear();
        m_vecNext.clear();
        m_vecSlots.clear();
    }

    std::size_t Size() const { return m_vecRecords.size(); }
    const Record& operator[](std::size_t nIndex) const { return m_vecRecords[nIndex]; }
    auto begin() const { return m_vecRecords.begin(); }
    auto end() const { return m_vecRecords.end(); }

 private:
    static constexpr std::uint32_t c_dwNone = 0xFFFFFFFF;
    static constexpr std::size_t c_nLeastSlots = 16;

    std::uint32_t LastIndex() const { return static_cast<std::uint32_t>(Size() - 1); }

    /// The ids come from files: the seed keeps an ill-meant one from choosing ids that collide.
    /// Addresses differ from run to run, which is all it needs.
    std::size_t Hash(std::uint16_t wDataType, CmUint32 dwFileID) const {
        std::uint64_t qw = (std::uint64_t{wDataType} << 32 | dwFileID) ^ m_qwSeed;
        qw = (qw ^ qw >> 30) * 0xBF58476D1CE4E5B9;
        qw = (qw ^ qw >> 27) * 0x94D049BB133111EB;
        return static_cast<std::size_t>(qw ^ qw >> 31);
    }

    /// The slot that holds the chain of a type and id, or the empty one where it would be. Key has
    /// both.
    template <class Key>
    std::size_t FindSlot(const Key& aKey) const {
        const std::size_t nMask = m_vecSlots.size() - 1;
        for (std::size_t n = Hash(aKey.wDataType, aKey.dwFileID) & nMask;; n = (n + 1) & nMask) {
            if (m_vecSlots[n] == c_dwNone) return n;
            const tagFileDescriber& aFirst = m_vecRecords[m_vecSlots[n]].aDescriber;
            if (aFirst.dwFileID == aKey.dwFileID && aFirst.wDataType == aKey.wDataType) return n;
        }
    }
    std::uint32_t& SlotOf(const tagFileDescriber& aKey) { return m_vecSlots[FindSlot(aKey)]; }

    /// Puts a record at the end of its chain if it brings a new kind.
    void Link(std::uint32_t dwIndex) {
        const tagFileDescriber& aDescriber = m_vecRecords[dwIndex].aDescriber;
        unsigned byNew = aDescriber.byFileType;
        std::uint32_t* pdwLink = &SlotOf(aDescriber);
        for (; *pdwLink != c_dwNone; pdwLink = &m_vecNext[*pdwLink])
            byNew &= ~unsigned{m_vecRecords[*pdwLink].aDescriber.byFileType};
        if (byNew != 0) *pdwLink = dwIndex;
    }

    void Rehash(std::size_t nSlots) {
        std::vector<std::uint32_t> vecSlots(nSlots, c_dwNone);
        m_vecSlots.swap(vecSlots);
        std::fill(m_vecNext.begin(), m_vecNext.end(), c_dwNone);
        for (std::size_t n = 0; n < Size(); ++n) Link(static_cast<std::uint32_t>(n));
    }

    const std::uint64_t m_qwSeed = reinterpret_cast<std::uintptr_t>(this) * 0x9E3779B97F4A7C15;
    std::vector<Record> m_vecRecords;
    std::vector<std::uint32_t> m_vecNext;   // the next in each record's chain
    std::vector<std::uint32_t> m_vecSlots;  // the first of each chain; at least half are empty
};
