#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/DataInfo.h"

/// Records that each carry a describer, in the order in which they were added, with a lookup that
/// finds the first match in constant time however many there are.
///
/// For each pair of type and id it knows the first record of each of the eight file kinds; the
/// answer is the earliest of those that the wanted kinds name. No lock. Record has a public member
/// aDescriber, which doesn't change while the record is in the table.
template <class Record>
class CDescriberTable {
 public:
    /// Adds a record behind the others. Throws std::bad_alloc with the table as it was.
    void Add(Record aRecord) {
        Firsts aNone;
        aNone.fill(c_dwNone);
        Firsts& aFirsts = m_mapFirst.try_emplace(KeyOf(aRecord), aNone).first->second;
        m_vecRecords.push_back(std::move(aRecord));
        Replace(aFirsts, m_vecRecords.back(), c_dwNone, LastIndex());
    }

    /// Takes the record that was added last away again.
    void RemoveLast() {
        const auto it = m_mapFirst.find(KeyOf(m_vecRecords.back()));
        if (it != m_mapFirst.end()) {  // a record of no kind may be the only one left of its pair
            Replace(it->second, m_vecRecords.back(), LastIndex(), c_dwNone);
            const auto isNone = [](std::uint32_t dwFirst) { return dwFirst == c_dwNone; };
            if (std::all_of(it->second.begin(), it->second.end(), isNone)) m_mapFirst.erase(it);
        }
        m_vecRecords.pop_back();
    }

    /// The first record whose describer aDataInfo designates, or null. Good until the table
    /// changes.
    const Record* Find(const tagDataInfo& aDataInfo) const {
        const auto it = m_mapFirst.find({aDataInfo.wDataType, aDataInfo.dwFileID});
        if (it == m_mapFirst.end()) return nullptr;
        std::uint32_t dwFirst = c_dwNone;
        for (unsigned nBit = 0; nBit < c_nKinds; ++nBit)
            if (aDataInfo.byFileType >> nBit & 1) dwFirst = std::min(dwFirst, it->second[nBit]);
        return dwFirst == c_dwNone ? nullptr : &m_vecRecords[dwFirst];
    }

    void Clear() {
        m_mapFirst.clear();
        m_vecRecords.clear();
    }

    std::size_t Size() const { return m_vecRecords.size(); }
    const Record& operator[](std::size_t nIndex) const { return m_vecRecords[nIndex]; }
    auto begin() const { return m_vecRecords.begin(); }
    auto end() const { return m_vecRecords.end(); }

 private:
    static constexpr unsigned c_nKinds = 8;
    static constexpr std::uint32_t c_dwNone = 0xFFFFFFFF;

    struct tagKey {
        std::uint16_t wDataType;
        CmUint32 dwFileID;
        bool operator==(const tagKey& aOther) const {
            return wDataType == aOther.wDataType && dwFileID == aOther.dwFileID;
        }
    };

    /// The ids come from files: the seed keeps an ill-meant one from choosing ids that collide.
    struct Hash {
        std::size_t operator()(const tagKey& aKey) const {
            std::uint64_t qw = (std::uint64_t{aKey.wDataType} << 32 | aKey.dwFileID) ^ qwSeed;
            qw = (qw ^ qw >> 30) * 0xBF58476D1CE4E5B9;
            qw = (qw ^ qw >> 27) * 0x94D049BB133111EB;
            return static_cast<std::size_t>(qw ^ qw >> 31);
        }
        std::uint64_t qwSeed;
    };

    using Firsts = std::array<std::uint32_t, c_nKinds>;

    static tagKey KeyOf(const Record& aRecord) {
        return {aRecord.aDescriber.wDataType, aRecord.aDescriber.dwFileID};
    }

    std::uint32_t LastIndex() const { return static_cast<std::uint32_t>(m_vecRecords.size() - 1); }

    /// For the kinds of the record whose first is dwOld, makes it dwNew.
    static void Replace(Firsts& aFirsts, const Record& aRecord, std::uint32_t dwOld,
                        std::uint32_t dwNew) {
        for (unsigned nBit = 0; nBit < c_nKinds; ++nBit)
            if ((aRecord.aDescriber.byFileType >> nBit & 1) && aFirsts[nBit] == dwOld)
                aFirsts[nBit] = dwNew;
    }

    std::vector<Record> m_vecRecords;
    /// Addresses differ from run to run, which is all the seed needs.
    std::unordered_map<tagKey, Firsts, Hash> m_mapFirst{
        0, Hash{reinterpret_cast<std::uintptr_t>(this) * 0x9E3779B97F4A7C15}};
};
