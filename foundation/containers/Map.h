#pragma once

#include "foundation/containers/Convertible.h"
#include "foundation/containers/Less.h"
#include "foundation/containers/Pair.h"
#include "foundation/containers/SortedList.h"

#include <cstddef>

namespace Common {

/// Values by key, in ascending order of the keys; see SortedList for cost, copies and failures.
///
/// An entry's `second` may be changed through an iterator; its `first` must be left alone, because the
/// order depends on it. Iterators stay valid until the map is cleared, assigned to or destroyed.
template <typename Key, typename Value, typename Less = less<Key>>
class map : public Convertible {
    struct KeyOfEntry {
        const Key& operator()(const pair<Key, Value>& entry) const { return entry.first; }
    };
    using Entries = SortedList<pair<Key, Value>, Key, KeyOfEntry, Less>;

public:
    using iterator = typename Entries::iterator;
    using const_iterator = typename Entries::const_iterator;

    /// Gives the key this value. Returns the key's entry, and true when it is new; false when the key was
    /// there already and its value has been replaced.
    pair<iterator, bool> insert(const Key& key, const Value& value) {
        const iterator known = m_entries.find(key);
        if (known != m_entries.end()) {
            known->second = value;
            return {known, false};
        }
        return {m_entries.insertNew(pair<Key, Value>(key, value)), true};
    }

    /// The entry of the key, or end().
    [[nodiscard]] iterator find(const Key& key) { return m_entries.find(key); }
    [[nodiscard]] const_iterator find(const Key& key) const { return m_entries.find(key); }

    [[nodiscard]] iterator begin() noexcept { return m_entries.begin(); }
    [[nodiscard]] iterator end() noexcept { return m_entries.end(); }
    [[nodiscard]] const_iterator begin() const noexcept { return m_entries.begin(); }
    [[nodiscard]] const_iterator end() const noexcept { return m_entries.end(); }

    [[nodiscard]] bool empty() const noexcept { return m_entries.empty(); }
    /// Counts the entries one by one.
    [[nodiscard]] std::size_t size() const noexcept { return m_entries.size(); }
    void clear() noexcept { m_entries.clear(); }

private:
    Entries m_entries;
};

} // namespace Common
