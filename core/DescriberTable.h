#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "core/DescriberLookup.h"

/// Records with describers, in the order in which they were added.
///
/// It has no lock, and lookups change it too, so only one thread may use it at a time. Record has a
/// public member aDescriber, which must not change in the table.
template <class Record>
class CDescriberTable {
 public:
    /// Adds a record, which must not be in the table, at the end. If it throws std::bad_alloc, the
    /// table is unchanged.
    void Add(const Record& aRecord) { m_vecRecords.push_back(aRecord); }
    void Add(Record&& aRecord) { m_vecRecords.push_back(std::move(aRecord)); }

    /// Removes the record that was added last.
    void RemoveLast() {
        m_lookup.RemoveLast(Size(), DescriberOf());
        m_vecRecords.pop_back();
    }

    /// Returns the first record whose describer aDataInfo selects, or null. The pointer is valid
    /// until the table changes.
    const Record* Find(const tagDataInfo& aDataInfo) const {
        const std::size_t nFound = m_lookup.Find(aDataInfo, Size(), DescriberOf());
        return nFound < Size() ? &m_vecRecords[nFound] : nullptr;
    }

    void Clear() {
        m_vecRecords.clear();
        m_lookup.Clear();
    }

    std::size_t Size() const { return m_vecRecords.size(); }
    const Record& operator[](std::size_t nIndex) const { return m_vecRecords[nIndex]; }
    auto begin() const { return m_vecRecords.begin(); }
    auto end() const { return m_vecRecords.end(); }

 private:
    auto DescriberOf() const {
        return [pRecords = m_vecRecords.data()](std::size_t n) -> const tagFileDescriber& {
            return pRecords[n].aDescriber;
        };
    }

    std::vector<Record> m_vecRecords;
    mutable CDescriberLookup m_lookup;
};
